// Trees, buffers and the string table used again and again, as the converter uses them
// file after file: what is saved must never depend on what came before.

#include <gtest/gtest.h>

#include <string>

#include "dmx/dm_pool.h"
#include "dmx_test_trees.h"

namespace zv::dmx {
namespace {

using testing::mustRead;
using testing::mustSave;

// A tree with many distinct names and shared types, like an animation file's channels.
CDmElement* buildChannels(DmElementTree& tree, int channels) {
  CDmElement* root = tree.create("DmElement", "root");
  auto& list = root->elementArray("channels");
  for (int i = 0; i < channels; ++i) {
    CDmElement* channel = tree.create("DmeChannel", "bone_with_a_long_name_" + std::to_string(i) + "_p");
    channel->setString("toAttribute", i % 2 ? "position" : "orientation");
    channel->addElement("log", "DmeVector3LogLayer", "vector3 log")->floatArray("values").assign(size_t(i), 0.5f);
    list.push_back(channel);
  }
  return root;
}

TEST(DmElementTree, ACleanedTreeBuildsTheSameFileAsANewOne) {
  DmElementTree fresh;
  std::vector<uint8_t> expected = mustSave(*buildChannels(fresh, 300));
  DmElementTree reused;
  buildChannels(reused, 1000);  // more elements than the next file: the rest must go
  reused.clear();
  EXPECT_EQ(reused.size(), 0u);
  CDmElement* root = buildChannels(reused, 300);
  EXPECT_EQ(root->id(), fresh.element(0)->id());
  EXPECT_EQ(mustSave(*root), expected);
  EXPECT_EQ(mustSave(*root, "binary"), mustSave(*fresh.element(0), "binary"));
}

TEST(CDmSerializerBinary, ThousandsOfStringsEachGetTheirOwnPlace) {
  DmElementTree tree;
  CDmElement* root = buildChannels(tree, 3000);
  DmDocument doc = mustRead(mustSave(*root));
  ASSERT_EQ(doc.elements.size(), 1u + 2u * 3000u);
  const auto& channels = doc.root->getElementArray("channels");
  ASSERT_EQ(channels.size(), 3000u);
  for (int i : {0, 1, 63, 64, 2999}) {
    EXPECT_EQ(channels[size_t(i)]->name(), "bone_with_a_long_name_" + std::to_string(i) + "_p");
    EXPECT_EQ(channels[size_t(i)]->getString("toAttribute"), i % 2 ? "position" : "orientation");
  }
}

TEST(CDmElement, ARemovedAttributeIsGoneAndItsNameFreeAgain) {
  DmElementTree tree;
  CDmElement* e = tree.create("DmElement", "e");
  e->floatArray("values").assign(100, 1.f);
  e->setInt("kept", 3);
  EXPECT_TRUE(e->removeAttribute("values"));
  EXPECT_FALSE(e->removeAttribute("values"));
  EXPECT_EQ(e->attributeCount(), 1u);
  e->setString("values", "again");
  EXPECT_EQ(e->getString("values"), "again");
  EXPECT_EQ(e->getInt("kept"), 3);
}

TEST(DmOutputBuffer, ACleanedBufferKeepsItsRoomAndWritesTheSameBytes) {
  DmElementTree big, small;
  buildChannels(big, 500);
  CDmElement* root = buildChannels(small, 20);
  std::vector<uint8_t> expected = mustSave(*root);

  DmOutputBuffer buffer;
  ASSERT_TRUE(serializeDmx(*big.element(0), buffer, kConverterEncoding, kConverterFormat, kConverterFormatVersion));
  size_t room = buffer.capacity();
  buffer.clear();
  ASSERT_TRUE(serializeDmx(*root, buffer, kConverterEncoding, kConverterFormat, kConverterFormatVersion));
  EXPECT_EQ(buffer.capacity(), room);
  EXPECT_EQ(std::vector<uint8_t>(buffer.bytes().begin(), buffer.bytes().end()), expected);

  // A failed save leaves the error behind until the buffer is cleared.
  buffer.setError();
  EXPECT_FALSE(serializeDmx(*root, buffer, kConverterEncoding, kConverterFormat, kConverterFormatVersion));
  buffer.release();
  EXPECT_EQ(buffer.capacity(), 0u);
  ASSERT_TRUE(serializeDmx(*root, buffer, kConverterEncoding, kConverterFormat, kConverterFormatVersion));
  EXPECT_EQ(buffer.take(), expected);
  EXPECT_EQ(buffer.size(), 0u);
}

struct Counted {
  static inline int alive = 0;
  int value;
  explicit Counted(int v) : value(v) { ++alive; }
  ~Counted() { --alive; }
};

TEST(DmPool, ObjectsStayPutAcrossChunksAndAreDestroyedOnce) {
  {
    DmPool<Counted, 4> pool;
    std::vector<Counted*> made;
    for (int i = 0; i < 10; ++i) made.push_back(pool.make(i));
    EXPECT_EQ(Counted::alive, 10);
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(made[size_t(i)], &pool[size_t(i)]);
      EXPECT_EQ(made[size_t(i)]->value, i);
    }
    pool.clear();
    EXPECT_EQ(Counted::alive, 0);
    EXPECT_EQ(pool.make(7), made[0]);  // the room is used again
    EXPECT_EQ(Counted::alive, 1);
  }
  EXPECT_EQ(Counted::alive, 0);
}

}  // namespace
}  // namespace zv::dmx
