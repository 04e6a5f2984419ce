#include "legacy/flex_reader.h"

#include <cctype>
#include <optional>

#include "base/strings.h"

namespace zv::legacy {
namespace {

// Record sizes of the flex tables.
constexpr size_t kDescriptorSize = 4;
constexpr size_t kControllerSize = 20;
constexpr size_t kRuleSize = 12;
constexpr size_t kOpSize = 8;
constexpr size_t kControllerUiSize = 20;
constexpr size_t kMeshFlexSize = 60;
constexpr int32_t kFirstUiVersion = 48;

std::string indexed(std::string_view what, size_t index) {
  return format("%.*s[%zu]", int(what.size()), what.data(), index);
}

bool takesController(int32_t code) {
  return code == kFlexFetchController || code == kFlexTwoWay0 || code == kFlexTwoWay1 || code == kFlexNWay ||
         code == kFlexLowerEyelid || code == kFlexUpperEyelid;
}

class FlexTableReader {
 public:
  FlexTableReader(RecordReader& reader, const Record& header, FlexTables& out) : r_(reader), h_(header), out_(out) {}

  // Rules name descriptors and controllers, UI entries controllers: when a table they
  // need is lost, they go with it, and the table's note says why. The UI table exists from
  // version 48 on; before, its header fields are unused and may hold anything.
  bool run() {
    bool descriptors = readDescriptors();
    if (!readControllers()) return descriptors;
    if (descriptors) {
      readHeaderTable(276, 280, kRuleSize, "flex rule", [&](const Record& rule, const std::string& where) {
        r_.optional(where, [&] { readRule(rule, where); });
      });
    }
    if (h_.i32(4) < kFirstUiVersion) return descriptors;
    readHeaderTable(384, 388, kControllerUiSize, "flex controller UI", [&](const Record& ui, const std::string& where) {
      r_.optional(where, [&] { readControllerUi(ui, where); });
    });
    return descriptors;
  }

 private:
  bool readDescriptors() {
    auto table = readHeaderTable(260, 264, kDescriptorSize, "flex descriptor", [&](const Record& d, const std::string& where) {
      out_.descriptors.emplace_back();
      r_.optional(where + "'s name", [&] { out_.descriptors.back() = name(d, 0, where); });
    });
    return table.has_value();
  }

  bool readControllers() {
    controllers_ = readHeaderTable(268, 272, kControllerSize, "flex controller", [&](const Record& c, const std::string& where) {
      FlexController& controller = out_.controllers.emplace_back();
      controller.min = c.f32(12);
      controller.max = c.f32(16);
      r_.optional(where + "'s names", [&] {
        controller.type = name(c, 0, where + ".type");
        controller.name = name(c, 4, where);
      });
    });
    return controllers_.has_value();
  }

  // Visits every record of a header table (count and offset fields from the file start);
  // a table that leaves the file is left out whole. Returns where it lies.
  template <class Visit>
  std::optional<Table> readHeaderTable(size_t countField, size_t offsetField, size_t stride, std::string_view what,
                                      Visit visit) {
    std::optional<Table> table;
    std::string label(what);
    r_.optional("the " + label + " table",
                [&] { table = r_.table(0, h_.i32(offsetField), h_.i32(countField), stride, label + " table"); });
    for (size_t i = 0; table && i < table->count; ++i) {
      visit(*r_.record(table->at(i), stride, label), indexed(compact(label), i));
    }
    return table;
  }

  // "flex controller UI" -> "flexcontrollerui", the record path's spelling.
  static std::string compact(std::string_view label) {
    std::string out;
    for (char c : label) {
      if (c != ' ') out.push_back(char(std::tolower(static_cast<unsigned char>(c))));
    }
    return out;
  }

  std::string name(const Record& record, size_t field, const std::string& where) {
    return r_.string(record.position(), record.i32(field), where + ".name").value_or("");
  }

  void readRule(const Record& rule, const std::string& where) {
    FlexRule out;
    out.target = rule.i32(0);
    if (out.target < 0 || size_t(out.target) >= out_.descriptors.size()) {
      r_.fail(format("%s at offset %zu targets descriptor %d of %zu", where.c_str(), rule.position(), out.target,
                     out_.descriptors.size()));
      return;
    }
    auto ops = r_.table(rule.position(), rule.i32(8), rule.i32(4), kOpSize, where + ".op table");
    for (size_t k = 0; ops && k < ops->count && !r_.failed(); ++k) {
      Record op = *r_.record(ops->at(k), kOpSize, "flex op");
      out.ops.push_back({op.i32(0), op.f32(4), op.i32(4)});
      checkOperand(out.ops.back(), op.position(), where);
    }
    if (!r_.failed()) out_.rules.push_back(std::move(out));
  }

  void checkOperand(const FlexOp& op, size_t at, const std::string& where) {
    size_t limit = takesController(op.code) ? out_.controllers.size()
                   : op.code == kFlexFetchDescriptor ? out_.descriptors.size()
                                                     : SIZE_MAX;
    if (limit != SIZE_MAX && (op.index < 0 || size_t(op.index) >= limit)) {
      r_.fail(format("%s: op %d at offset %zu names %s %d of %zu", where.c_str(), op.code, at,
                     op.code == kFlexFetchDescriptor ? "descriptor" : "controller", op.index, limit));
    }
  }

  // The three controller slots are offsets from the UI record to controller records.
  void readControllerUi(const Record& ui, const std::string& where) {
    FlexControllerUi out;
    out.name = name(ui, 0, where);
    out.remap = ui.get<uint8_t>(16);
    out.stereo = ui.get<uint8_t>(17) != 0;
    for (size_t slot = 0; slot < 3 && !r_.failed(); ++slot) {
      out.controllers[slot] = controllerAt(ui, 4 + 4 * slot, where);
    }
    if (!r_.failed()) out_.controllerUis.push_back(std::move(out));
  }

  int32_t controllerAt(const Record& ui, size_t field, const std::string& where) {
    int32_t relative = ui.i32(field);
    if (relative == 0) return -1;
    auto at = offsetFrom(ui.position(), relative, r_.file().size());
    if (controllers_ && at && *at >= controllers_->start) {
      size_t distance = *at - controllers_->start;
      if (distance % kControllerSize == 0 && distance / kControllerSize < controllers_->count)
        return int32_t(distance / kControllerSize);
    }
    r_.fail(format("%s at offset %zu: field %zu (%d) does not point at a flex controller record", where.c_str(),
                   ui.position(), field, relative));
    return -1;
  }

  RecordReader& r_;
  const Record& h_;
  FlexTables& out_;
  std::optional<Table> controllers_;
};

class MeshFlexReader {
 public:
  MeshFlexReader(RecordReader& reader, int32_t vertexCount, const FlexTables& tables)
      : r_(reader), vertexCount_(vertexCount), tables_(tables) {}

  MeshFlex read(const Record& flex, const std::string& where) {
    MeshFlex out;
    out.recordOffset = flex.position();
    out.descriptor = flex.i32(0);
    if (!isDescriptor(out.descriptor)) {
      r_.fail(format("%s at offset %zu names descriptor %d of %zu", where.c_str(), flex.position(), out.descriptor,
                     tables_.descriptors.size()));
      return out;
    }
    for (size_t k = 0; k < 4; ++k) out.window[k] = flex.f32(4 + 4 * k);
    out.partner = readPartner(flex, where);
    uint8_t form = flex.get<uint8_t>(32);
    if (form > 1) {
      r_.fail(format("%s at offset %zu has an unknown vertex animation form %d", where.c_str(), flex.position(), form));
      return out;
    }
    out.wrinkle = form == 1;
    readDeltas(flex, out, where);
    return out;
  }

 private:
  bool isDescriptor(int32_t index) const { return index >= 0 && size_t(index) < tables_.descriptors.size(); }

  // 0 and -1 both mean "no partner"; anything else must be another descriptor.
  int32_t readPartner(const Record& flex, const std::string& where) {
    int32_t partner = flex.i32(28);
    if (partner == 0 || partner == -1) return -1;
    if (isDescriptor(partner)) return partner;
    r_.note(format("%s at offset %zu names partner descriptor %d of %zu; it is kept without one", where.c_str(),
                   flex.position(), partner, tables_.descriptors.size()));
    return -1;
  }

  // The whole table is checked to lie in the file once; its records are decoded where the
  // deltas are used. Here only the vertex of each is checked.
  void readDeltas(const Record& flex, MeshFlex& out, const std::string& where) {
    size_t stride = out.wrinkle ? VertexAnimations::kWrinkleSize : VertexAnimations::kPlainSize;
    auto anims = r_.table(flex.position(), flex.i32(24), flex.i32(20), stride, where + ".vertex animation table");
    if (!anims || anims->count == 0) return;
    const uint8_t* records = r_.file().sub(anims->start, anims->count * stride)->data();
    size_t usable = 0;
    for (size_t k = 0; k < anims->count; ++k)
      usable += VertexAnimations::namesVertexBelow(records + k * stride, vertexCount_);
    out.deltas = VertexAnimations(records, anims->count, out.wrinkle, vertexCount_, usable);
    if (usable < anims->count) {
      r_.note(format("%s at offset %zu: %zu of its %zu vertex animations name vertices past the mesh's %d; they "
                     "are left out",
                     where.c_str(), flex.position(), anims->count - usable, anims->count, vertexCount_));
    }
  }

  RecordReader& r_;
  int32_t vertexCount_;
  const FlexTables& tables_;
};

}  // namespace

const float* deltaHalfValues() {
  static const std::vector<float> values = [] {
    std::vector<float> table(65536);
    for (uint32_t half = 0; half < 65536; ++half) {
      table[half] = (half & 0x7C00u) == 0x7C00u ? 0.0f : halfToFloat(uint16_t(half));
    }
    return table;
  }();
  return values.data();
}

bool readFlexTables(RecordReader& reader, const Record& header, FlexTables& out) {
  return FlexTableReader(reader, header, out).run();
}

std::vector<MeshFlex> readMeshFlexes(RecordReader& reader, const Record& mesh, int32_t vertexCount,
                                     const FlexTables& tables, const std::string& where) {
  std::vector<MeshFlex> flexes;
  std::optional<Table> table;
  reader.optional(where + "'s flexes", [&] {
    table = reader.table(mesh.position(), mesh.i32(20), mesh.i32(16), kMeshFlexSize, where + ".flex table");
  });
  MeshFlexReader records(reader, vertexCount, tables);
  for (size_t i = 0; table && i < table->count; ++i) {
    std::string flexWhere = where + indexed(".flex", i);
    reader.optional(flexWhere, [&] {
      MeshFlex flex = records.read(*reader.record(table->at(i), kMeshFlexSize, "mesh flex"), flexWhere);
      if (!reader.failed()) flexes.push_back(std::move(flex));
    });
  }
  return flexes;
}

}  // namespace zv::legacy
