#include "legacy/record_reader.h"

#include "base/strings.h"

namespace zv::legacy {

Matrix3x4 Record::mat3x4(size_t field) const {
  Matrix3x4 m;
  for (size_t i = 0; i < 3; ++i) {
    for (size_t j = 0; j < 4; ++j) m.m[i][j] = f32(field + 4 * (4 * i + j));
  }
  return m;
}

std::string Record::fixedString(size_t field, size_t length) const {
  std::string out;
  for (size_t i = 0; i < length && field + i < size_; ++i) {
    char c = get<char>(field + i);
    if (c == '\0') break;
    out.push_back(c);
  }
  return out;
}

std::nullopt_t RecordReader::fail(std::string message) {
  if (!error_) error_ = fileName_ + ": " + message;
  return std::nullopt;
}

std::optional<Record> RecordReader::record(size_t position, size_t size, std::string_view what) {
  if (failed()) return std::nullopt;
  if (!file_.contains(position, size)) {
    return fail(format("%.*s (%zu bytes) at offset %zu leaves the file (%zu bytes)", int(what.size()), what.data(),
                       size, position, file_.size()));
  }
  return Record(file_, position, size);
}

std::optional<Table> RecordReader::table(size_t base, int64_t relative, int64_t count, size_t stride,
                                         std::string_view what) {
  if (failed()) return std::nullopt;
  auto bytes = tableBytes(count, stride);
  if (!bytes) {
    return fail(format("%.*s has an invalid count %lld", int(what.size()), what.data(), static_cast<long long>(count)));
  }
  if (count == 0) return Table{0, 0, stride};
  auto start = offsetFrom(base, relative, file_.size());
  if (!start || !file_.contains(*start, *bytes)) {
    return fail(format("%.*s (%lld x %zu bytes) at offset %lld leaves the file (%zu bytes)", int(what.size()),
                       what.data(), static_cast<long long>(count), stride,
                       static_cast<long long>(static_cast<int64_t>(base) + relative), file_.size()));
  }
  return Table{*start, static_cast<size_t>(count), stride};
}

std::optional<std::string> RecordReader::string(size_t base, int64_t relative, std::string_view what,
                                                bool allowZero) {
  if (failed()) return std::nullopt;
  if (relative == 0 && allowZero) return std::string();
  auto start = offsetFrom(base, relative, file_.size());
  auto text = start ? file_.cstr(*start) : std::nullopt;
  if (!text) {
    return fail(format("%.*s at offset %lld is not a terminated string inside the file", int(what.size()),
                       what.data(), static_cast<long long>(static_cast<int64_t>(base) + relative)));
  }
  return std::string(*text);
}

}  // namespace zv::legacy
