// Names of numeric animation events and the word of the message for those without one.

#include "importer/anim_events.h"

#include <gtest/gtest.h>

namespace zv {
namespace {

TEST(EventNames, TheGenericTableTheDispatchEffectsAndFootsteps) {
  const struct {
    int32_t id;
    const char* options;
    const char* name;  // nullptr: none
  } cases[] = {
      {2060, "", "NPC_EVENT_OPEN_DOOR"},  // the one without the prefix
      {1004, "crate.open", "AE_SV_PLAYSOUND"},
      {3900, "", "AE_WEAPON_SEQUENCE_FINISHED"},
      {9001, "", "AE_CL_DISPATCHEFFECT0"},
      {9011, "", "AE_CL_DISPATCHEFFECT1"},
      {9091, "", "AE_CL_DISPATCHEFFECT9"},
      {9012, "", nullptr},  // not on the steps of ten
      {9092, "", nullptr},
      {9101, "", nullptr},
      {4001, "left", "AE_SV_FOOTSTEP_LEFT"},
      {4002, "l", "AE_SV_FOOTSTEP_LEFT"},
      {4001, "right", "AE_SV_FOOTSTEP_RIGHT"},
      {4001, "", "AE_SV_FOOTSTEP_RIGHT"},  // no text counts as right
      {4002, "Left", "AE_SV_FOOTSTEP_RIGHT"},  // only a lower-case "l" is left
      {7001, "left", "AE_CL_FOOTSTEP_LEFT"},
      {7002, "", "AE_CL_FOOTSTEP_RIGHT"},
      {6004, "right", "AE_CL_FOOTSTEP_LEFT"},  // a fixed id, whatever the text
      {0, "", nullptr},
      {-5, "", nullptr},
  };
  for (const auto& c : cases) {
    EventName found = lookupEventName("models/props/crate.mdl", c.id, c.options);
    EXPECT_EQ(found.name.value_or("<none>"), c.name ? c.name : "<none>") << c.id << " " << c.options;
    EXPECT_EQ(found.unknown, c.name == nullptr) << c.id;
  }
}

TEST(EventNames, RetiredIdsAreObsoleteAndATitlesOwnAreUnknown) {
  for (int32_t id : {9012, 3019, 1000, 9999}) {
    EXPECT_STREQ(unnamedEventWord(id, lookupEventName("m.mdl", id, "")), "ignoring obsolete") << id;
  }
  for (int32_t id : {0, 999, 10000, 42}) {
    EXPECT_STREQ(unnamedEventWord(id, lookupEventName("m.mdl", id, "")), "imported with unknown") << id;
  }
}

}  // namespace
}  // namespace zv
