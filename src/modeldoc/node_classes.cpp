#include "modeldoc/node_classes.h"

namespace zv::modeldoc {
namespace {

using K = KeyType;

constexpr KeyDefault byDefault(bool value) { return {KeyDefault::Kind::Bool, value ? 1.0 : 0.0, ""}; }
constexpr KeyDefault byDefault(int value) { return {KeyDefault::Kind::Int, static_cast<double>(value), ""}; }
constexpr KeyDefault byDefault(double value) { return {KeyDefault::Kind::Float, value, ""}; }
constexpr KeyDefault byDefault(const char* text) { return {KeyDefault::Kind::String, 0, text}; }

// Keys in the order they are saved.

constexpr KeySpec kRootKeys[] = {
    {"model_archetype", K::String, byDefault("")},
    {"primary_associated_entity", K::String, byDefault("")},
    {"anim_graph_name", K::String, byDefault("")},
    {"base_model_name", K::String, byDefault("")},
    {"document_kind", K::Int},  // set for documents other than plain models
};

constexpr KeySpec kBoundsHullKeys[] = {{"mins", K::Vector3}, {"maxs", K::Vector3}};

constexpr KeySpec kBoneKeys[] = {
    {"origin", K::Vector3},
    {"angles", K::Angles},
    {"do_not_discard", K::Bool, byDefault(true)},
    {"scale", K::Float, byDefault(1.0)},
};

constexpr KeySpec kBoneMarkupListKeys[] = {{"bone_cull_type", K::Int}};

constexpr KeySpec kPoseParamKeys[] = {
    {"poseparam_min", K::Float},
    {"poseparam_max", K::Float},
    {"poseparam_looping", K::Bool},
    {"poseparam_loop", K::Float},
};

constexpr KeySpec kMaterialGroupKeys[] = {{"remaps", K::ObjectArray}};
constexpr KeySpec kBodyGroupKeys[] = {{"hidden_in_tools", K::Bool, byDefault(false)}};
constexpr KeySpec kBodyGroupChoiceKeys[] = {{"meshes", K::StringArray}};
constexpr KeySpec kGenericGameDataKeys[] = {{"game_class", K::String}, {"game_keys", K::StringMap}};
constexpr KeySpec kLodGroupKeys[] = {{"switch_threshold", K::Float}, {"meshes", K::StringArray}};
constexpr KeySpec kRenderMeshFileKeys[] = {{"filename", K::String},
                                           {"import_scale", K::Float, byDefault(1.0)}};
constexpr KeySpec kPrefabKeys[] = {{"target_file", K::String}};

constexpr KeySpec kAttachmentKeys[] = {
    {"parent_bone", K::String},
    {"relative_origin", K::Vector3},
    {"relative_angles", K::Angles},
    {"weight", K::Float},
    {"ignore_rotation", K::Bool, byDefault(false)},
};

constexpr KeySpec kHitboxKeys[] = {
    {"parent_bone", K::String}, {"surface_property", K::String}, {"group_id", K::Int}, {"mins", K::Vector3},
    {"maxs", K::Vector3},
};
constexpr KeySpec kHitboxSphereKeys[] = {
    {"parent_bone", K::String}, {"surface_property", K::String}, {"group_id", K::Int}, {"center", K::Vector3},
    {"radius", K::Float},
};
constexpr KeySpec kHitboxCapsuleKeys[] = {
    {"parent_bone", K::String}, {"surface_property", K::String}, {"group_id", K::Int},
    {"point0", K::Vector3},     {"point1", K::Vector3},          {"radius", K::Float},
};

constexpr KeySpec kIkChainKeys[] = {{"end_effector_bone", K::String}};
constexpr KeySpec kIkChainJointKeys[] = {{"bone_name", K::String}};

constexpr KeySpec kJiggleBoneKeys[] = {
    {"jiggle_root_bone", K::String},
    {"jiggle_type", K::Int},
    {"has_yaw_constraint", K::Bool},
    {"has_pitch_constraint", K::Bool},
    {"has_angle_constraint", K::Bool},
    {"has_base_spring", K::Bool},
    {"allow_length_flex", K::Bool},
    {"length", K::Float},
    {"tip_mass", K::Float},
    {"yaw_stiffness", K::Float},
    {"yaw_damping", K::Float},
    {"pitch_stiffness", K::Float},
    {"pitch_damping", K::Float},
    {"along_stiffness", K::Float},
    {"along_damping", K::Float},
    {"angle_limit", K::Float},
    {"min_yaw", K::Float},
    {"max_yaw", K::Float},
    {"yaw_friction", K::Float},
    {"yaw_bounce", K::Float},
    {"min_pitch", K::Float},
    {"max_pitch", K::Float},
    {"pitch_friction", K::Float},
    {"pitch_bounce", K::Float},
    {"base_mass", K::Float},
    {"base_stiffness", K::Float},
    {"base_damping", K::Float},
    {"base_left_min", K::Float},
    {"base_left_max", K::Float},
    {"base_left_friction", K::Float},
    {"base_up_min", K::Float},
    {"base_up_max", K::Float},
    {"base_up_friction", K::Float},
    {"base_forward_min", K::Float},
    {"base_forward_max", K::Float},
    {"base_forward_friction", K::Float},
};

constexpr KeySpec kWeightListKeys[] = {{"weights", K::ObjectArray}};

constexpr KeySpec kPhysicsBodyMarkupKeys[] = {
    {"target_body", K::String},   {"mass_override", K::Float},   {"inertia_scale", K::Float},
    {"linear_damping", K::Float}, {"angular_damping", K::Float},
};

constexpr KeySpec kPhysicsJointConicalKeys[] = {
    {"parent_body", K::String},      {"child_body", K::String},
    {"anchor_origin", K::Vector3},   {"anchor_angles", K::Angles},
    {"friction", K::Float},          {"enable_swing_limit", K::Bool},
    {"swing_limit", K::Float},       {"swing_offset_angle", K::Angles},
    {"enable_twist_limit", K::Bool}, {"min_twist_angle", K::Float},
    {"max_twist_angle", K::Float},
};
constexpr KeySpec kPhysicsJointRevoluteKeys[] = {
    {"parent_body", K::String},   {"child_body", K::String}, {"anchor_origin", K::Vector3},
    {"anchor_angles", K::Angles}, {"friction", K::Float},    {"enable_limit", K::Bool},
    {"min_angle", K::Float},      {"max_angle", K::Float},
};
constexpr KeySpec kPhysicsJointWeldKeys[] = {
    {"parent_body", K::String},
    {"child_body", K::String},
    {"anchor_origin", K::Vector3},
    {"anchor_angles", K::Angles},
};
constexpr KeySpec kPhysicsHullFileKeys[] = {
    {"parent_bone", K::String},
    {"surface_prop", K::String},
    {"filename", K::String},
    {"mesh_name", K::String},
};
constexpr KeySpec kBreakPieceExternalKeys[] = {
    {"model", K::String},
    {"angular_burst", K::Float},
    {"burst_scale", K::Float},
    {"break_keys", K::StringMap},
};

constexpr KeySpec kAnimFileKeys[] = {
    {"source_filename", K::String},
    {"activity_name", K::String},
    {"activity_weight", K::Int},
    {"weight_list_name", K::String},
    {"fade_in_time", K::Float},
    {"fade_out_time", K::Float},
    {"looping", K::Bool},
    {"delta", K::Bool},
    {"hidden", K::Bool},
    {"world_space", K::Bool},
    {"start_frame", K::Int, byDefault(0)},
    {"end_frame", K::Int, byDefault(-1)},
    {"framerate", K::Float, byDefault(-1.0)},
    {"sequence_keys", K::Object},
};
// The keys of an animation file without its source file, then the grid's own.
constexpr KeySpec kAnimBlendGridKeys[] = {
    {"activity_name", K::String},
    {"activity_weight", K::Int},
    {"weight_list_name", K::String},
    {"fade_in_time", K::Float},
    {"fade_out_time", K::Float},
    {"looping", K::Bool},
    {"delta", K::Bool},
    {"hidden", K::Bool},
    {"world_space", K::Bool},
    {"start_frame", K::Int, byDefault(0)},
    {"end_frame", K::Int, byDefault(-1)},
    {"framerate", K::Float, byDefault(-1.0)},
    {"sequence_keys", K::Object},
    {"blend_params", K::StringArray},
    {"grid_size", K::IntArray},
    {"animations", K::StringArray},
};
constexpr KeySpec kAnimEventKeys[] = {
    {"event_class", K::String},
    {"event_frame", K::Int},
    {"event_keys", K::Object},
};
constexpr KeySpec kAnimBlendLayerKeys[] = {
    {"sequence_name", K::String}, {"start_frame", K::Int}, {"peak_frame", K::Int},
    {"tail_frame", K::Int},       {"end_frame", K::Int},   {"pose_param", K::String},
    {"flags", K::StringArray},
};

using R = NodeRole;

constexpr NodeClass kRootClass{"RootNode", R::Root, kRootKeys};

constexpr NodeClass kClasses[] = {
    {"BoundsHull", R::Leaf, kBoundsHullKeys},
    {"Skeleton", R::List, {}},
    {"Bone", R::Parent, kBoneKeys},
    {"BoneMarkupList", R::List, kBoneMarkupListKeys},
    {"PoseParamList", R::List, {}},
    {"PoseParam", R::Leaf, kPoseParamKeys},
    {"MaterialGroupList", R::List, {}},
    {"MaterialGroup", R::Leaf, kMaterialGroupKeys},
    {"BodyGroupList", R::List, {}},
    {"BodyGroup", R::Parent, kBodyGroupKeys},
    {"BodyGroupChoice", R::Leaf, kBodyGroupChoiceKeys},
    {"GameDataList", R::List, {}},
    {"GenericGameData", R::Leaf, kGenericGameDataKeys},
    {"LODGroupList", R::List, {}},
    {"LODGroup", R::Leaf, kLodGroupKeys},
    {"RenderMeshList", R::List, {}},
    {"RenderMeshFile", R::Leaf, kRenderMeshFileKeys},
    {"Prefab", R::Leaf, kPrefabKeys},
    {"AttachmentList", R::List, {}},
    {"Attachment", R::Leaf, kAttachmentKeys},
    {"HitboxSetList", R::List, {}},
    {"HitboxSet", R::Parent, {}},
    {"Hitbox", R::Leaf, kHitboxKeys},
    {"HitboxSphere", R::Leaf, kHitboxSphereKeys},
    {"HitboxCapsule", R::Leaf, kHitboxCapsuleKeys},
    {"IKData", R::List, {}},
    {"IKChain", R::Parent, kIkChainKeys},
    {"IKChainJoint", R::Parent, kIkChainJointKeys},
    {"JiggleBoneList", R::List, {}},
    {"JiggleBone", R::Leaf, kJiggleBoneKeys},
    {"WeightListList", R::List, {}},
    {"WeightList", R::Leaf, kWeightListKeys},
    {"PhysicsBodyMarkupList", R::List, {}},
    {"PhysicsBodyMarkup", R::Leaf, kPhysicsBodyMarkupKeys},
    {"PhysicsJointList", R::List, {}},
    {"PhysicsJointConical", R::Leaf, kPhysicsJointConicalKeys},
    {"PhysicsJointRevolute", R::Leaf, kPhysicsJointRevoluteKeys},
    {"PhysicsJointWeld", R::Leaf, kPhysicsJointWeldKeys},
    {"PhysicsShapeList", R::List, {}},
    {"PhysicsHullFile", R::Leaf, kPhysicsHullFileKeys},
    {"BreakPieceList", R::List, {}},
    {"BreakPieceExternal", R::Leaf, kBreakPieceExternalKeys},
    {"AnimationList", R::List, {}},
    {"AnimFile", R::Parent, kAnimFileKeys},
    {"AnimBlendGrid", R::Parent, kAnimBlendGridKeys},
    {"AnimEvent", R::Leaf, kAnimEventKeys},
    {"AnimBlendLayer", R::Leaf, kAnimBlendLayerKeys},
};

constexpr std::string_view kClassPrefix = "CModelDoc";

}  // namespace

int NodeClass::keyIndex(std::string_view key) const {
  for (size_t i = 0; i < keys.size(); ++i) {
    if (key == keys[i].name) return static_cast<int>(i);
  }
  return -1;
}

const NodeClass* findNodeClass(std::string_view name) {
  if (name.substr(0, kClassPrefix.size()) == kClassPrefix) name.remove_prefix(kClassPrefix.size());
  for (const NodeClass& nodeClass : kClasses) {
    if (name == nodeClass.name) return &nodeClass;
  }
  return nullptr;
}

const NodeClass& rootNodeClass() { return kRootClass; }

std::span<const NodeClass> allNodeClasses() { return kClasses; }

}  // namespace zv::modeldoc
