#include "importer/anim_events.h"

#include <span>

#include "base/strings.h"

namespace zv {
namespace {

struct GenericEvent {
  int32_t id;
  const char* name;
};

constexpr GenericEvent kGenericEvents[] = {
    {1004, "AE_SV_PLAYSOUND"},
    {1100, "AE_FIRE_INPUT"},
    {2001, "AE_NPC_BODYDROP_LIGHT"},
    {2002, "AE_NPC_BODYDROP_HEAVY"},
    {2010, "AE_NPC_SWISHSOUND"},
    {2020, "AE_NPC_180TURN"},
    {2040, "AE_NPC_ITEM_PICKUP"},
    {2041, "AE_NPC_WEAPON_DROP"},
    {2050, "AE_NPC_LEFTFOOT"},
    {2051, "AE_NPC_RIGHTFOOT"},
    {2060, "NPC_EVENT_OPEN_DOOR"},  // without the prefix the others carry
    {3001, "AE_WEAPON_MELEE_HIT"},
    {3002, "AE_WEAPON_SMG1"},
    {3003, "AE_WEAPON_MELEE_SWISH"},
    {3004, "AE_WEAPON_SHOTGUN_FIRE"},
    {3005, "AE_WEAPON_THROW"},
    {3006, "AE_WEAPON_AR1"},
    {3007, "AE_WEAPON_AR2"},
    {3008, "AE_WEAPON_HMG1"},
    {3009, "AE_WEAPON_SMG2"},
    {3010, "AE_WEAPON_MISSILE_FIRE"},
    {3011, "AE_WEAPON_SNIPER_RIFLE_FIRE"},
    {3012, "AE_WEAPON_AR2_GRENADE"},
    {3013, "AE_WEAPON_THROW2"},
    {3014, "AE_WEAPON_PISTOL_FIRE"},
    {3015, "AE_WEAPON_RELOAD"},
    {3016, "AE_WEAPON_THROW3"},
    {3017, "AE_WEAPON_RELOAD_SOUND"},
    {3018, "AE_WEAPON_RELOAD_FILL_CLIP"},
    {3101, "AE_WEAPON_SMG1_BURST1"},
    {3102, "AE_WEAPON_SMG1_BURSTN"},
    {3103, "AE_WEAPON_AR2_ALTFIRE"},
    {3900, "AE_WEAPON_SEQUENCE_FINISHED"},
    {5001, "AE_CL_MUZZLEFLASH0"},
    {5002, "AE_CL_SPARK0"},
    {5003, "AE_CL_NPC_MUZZLEFLASH0"},
    {5004, "AE_CL_PLAYSOUND"},
    {5011, "AE_CL_MUZZLEFLASH1"},
    {5013, "AE_CL_NPC_MUZZLEFLASH1"},
    {5021, "AE_CL_MUZZLEFLASH2"},
    {5023, "AE_CL_NPC_MUZZLEFLASH2"},
    {5031, "AE_CL_MUZZLEFLASH3"},
    {5033, "AE_CL_NPC_MUZZLEFLASH3"},
    {6001, "AE_CL_EJECTBRASS1"},
    {6002, "AE_CL_SPRITEGROUP_CREATE"},
    {6003, "AE_CL_SPRITEGROUP_DESTROY"},
    {6004, "AE_CL_FOOTSTEP_LEFT"},
    {6005, "AE_CL_FOOTSTEP_RIGHT"},
    {6006, "AE_CL_MFOOTSTEP_LEFT"},
    {6007, "AE_CL_MFOOTSTEP_RIGHT"},
    {6008, "AE_CL_MFOOTSTEP_LEFT_LOUD"},
    {6009, "AE_CL_MFOOTSTEP_RIGHT_LOUD"},
    {9001, "AE_CL_DISPATCHEFFECT0"},
};

// Rows for particular models of the titles this converter serves: a row matches when its
// file name occurs in the model's name (ignoring case). None are needed so far.
struct ModelEvent {
  const char* modelFileName;
  int32_t id;
  const char* name;  // empty: an event that model no longer has
};
constexpr std::span<const ModelEvent> kModelEvents{};

std::string footstep(const char* side, std::string_view options) {
  return format("AE_%s_FOOTSTEP_%s", side, !options.empty() && options.front() == 'l' ? "LEFT" : "RIGHT");
}

}  // namespace

EventName lookupEventName(std::string_view modelFileName, int32_t id, std::string_view options) {
  for (const ModelEvent& row : kModelEvents) {
    if (row.id == id && containsNoCase(modelFileName, row.modelFileName)) {
      if (*row.name == '\0') return {std::nullopt, false};
      return {std::string(row.name), false};
    }
  }
  if (id == 4001 || id == 4002) return {footstep("SV", options), false};
  if (id == 7001 || id == 7002) return {footstep("CL", options), false};
  // 9011 to 9091 in steps of 10: the dispatch effects 1 to 9.
  if (id >= 9011 && id <= 9091 && id % 10 == 1) return {format("AE_CL_DISPATCHEFFECT%d", (id - 9001) / 10), false};
  for (const GenericEvent& event : kGenericEvents) {
    if (event.id == id) return {std::string(event.name), false};
  }
  return {std::nullopt, true};
}

const char* unnamedEventWord(int32_t id, const EventName& lookup) {
  bool inFamilies = id >= 1000 && id <= 9999;
  return lookup.unknown && !inFamilies ? "imported with unknown" : "ignoring obsolete";
}

}  // namespace zv
