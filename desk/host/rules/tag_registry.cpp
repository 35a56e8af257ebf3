#include "desk/host/rules/tag_registry.h"

#include <fmt/core.h>

#include <array>
#include <stdexcept>

#include "host/lumnoderequest.h"

namespace desk {
namespace {

constexpr const char* ImageConfigs = "org.tamo.camera2.ipeicaconfigs";
constexpr const char* StreamPresent = "org.tamo.camera.streamTypePresent";
constexpr const char* RealTimeEis = "org.tamo.camera.eisrealtime";
constexpr const char* LookAheadEis = "org.tamo.camera.eislookahead";

constexpr LumMetadataType Vendor = LumMetadataTypeVendorTag;
constexpr LumMetadataType Unset = LumMetadataTypeUnset;
constexpr uint32_t Stabilizer = LumTagFlagStabilizer;
constexpr uint32_t Extra = LumTagFlagExtraBuffers;
constexpr uint64_t PerspectiveSize = 360;

enum TagIndex : size_t {
    GridOfRealTime,
    GridOfLookAhead,
    MarginOfRealTime,
    MarginOfLookAhead,
    DimsOfRealTime,
    DimsOfLookAhead,
    PerspectiveOfRealTime,
    PerspectiveOfLookAhead,
    Preview,
    ExtraBuffers,
    TagCount
};

constexpr auto RT = Variant::RealTime;
constexpr auto LA = Variant::LookAhead;

// Ordered as TagIndex. "LookAhead" and "Lookahead" differ on purpose: these are the names in use.
constexpr std::array<Tag, TagCount> Tags = {{
    {ImageConfigs, "ICAInGridTransform", sizeof(IPEICAGridTransform), 0, PhaseCreate, PhaseSecondPass, 0,
     Vendor, RT},
    {ImageConfigs, "ICAInGridTransformLookahead", sizeof(IPEICAGridTransform), 0, PhaseCreate,
     PhaseSecondPass, 0, Vendor, LA},
    {RealTimeEis, "RequestedMargin", sizeof(LumStabilizationMargin), Stabilizer, PhaseQuery, PhaseQuery, 0,
     Vendor, RT},
    {LookAheadEis, "RequestedMargin", sizeof(LumStabilizationMargin), Stabilizer, PhaseQuery, PhaseQuery, 0,
     Vendor, LA},
    {RealTimeEis, "StabilizedOutputDims", sizeof(LumStabilizedOutputDims), Stabilizer, PhaseQuery, 0,
     PhaseQuery, Vendor, RT},
    {LookAheadEis, "StabilizedOutputDims", sizeof(LumStabilizedOutputDims), Stabilizer, PhaseQuery, 0,
     PhaseQuery, Vendor, LA},
    {ImageConfigs, "ICAInPerspectiveTransform", PerspectiveSize, 0, PhaseCreate, 0, 0, Vendor, RT},
    {ImageConfigs, "ICAInPerspectiveTransformLookAhead", PerspectiveSize, 0, PhaseCreate, 0, 0, Vendor, LA},
    {StreamPresent, "preview", 1, 0, PhaseCreate, PhaseSecondPass, 0, Vendor, RT},
    {ImageConfigs, "ExtraFrameworkBuffers", sizeof(uint32_t), Extra, PhaseCreate, 0, PhaseCreate, Unset,
     std::nullopt},
}};

// Clear of both flag bits, and far from the small numbers that tests pin.
constexpr uint32_t FirstId = 0x80010000;
constexpr uint32_t FlagBits = LumTagFlagStabilizer | LumTagFlagExtraBuffers;

const Tag& OfVariant(Variant variant, TagIndex ofRealTime, TagIndex ofLookAhead) {
    return Tags[variant == Variant::RealTime ? ofRealTime : ofLookAhead];
}

}  // namespace

const Tag& GridTag(Variant variant) {
    return OfVariant(variant, GridOfRealTime, GridOfLookAhead);
}

const Tag& MarginTag(Variant variant) {
    return OfVariant(variant, MarginOfRealTime, MarginOfLookAhead);
}

const Tag& OutputDimsTag(Variant variant) {
    return OfVariant(variant, DimsOfRealTime, DimsOfLookAhead);
}

const Tag& PreviewTag() {
    return Tags[Preview];
}

const Tag& ExtraBuffersTag() {
    return Tags[ExtraBuffers];
}

TagRegistry::TagRegistry() {
    uint32_t id = FirstId;
    for (const Tag& tag : Tags) {
        tagOfId_[id++] = &tag;
    }
}

const Tag* TagRegistry::Find(std::string_view section, std::string_view name) const {
    for (const Tag& tag : Tags) {
        if (section == tag.section && name == tag.name) {
            return &tag;
        }
    }
    return nullptr;
}

const Tag* TagRegistry::Resolve(uint32_t id) const {
    const auto found = tagOfId_.find(id & ~FlagBits);
    return found == tagOfId_.end() ? nullptr : found->second;
}

uint32_t TagRegistry::Id(const Tag& tag) const {
    for (const auto& [id, registered] : tagOfId_) {
        if (registered == &tag) {
            return id;
        }
    }
    throw std::invalid_argument(fmt::format("the tag {} is not one of the registry's own", tag.FullName()));
}

uint32_t TagRegistry::FlaggedId(const Tag& tag) const {
    return Id(tag) | tag.flag;
}

void TagRegistry::Pin(const Tag& tag, uint32_t id) {
    if ((id & FlagBits) != 0) {
        throw std::invalid_argument(
            fmt::format("the id {:#x} for the tag {} has a bit of the host's flags {:#x} set", id,
                        tag.FullName(), FlagBits));
    }
    const Tag* holder = Resolve(id);
    if (holder != nullptr && holder != &tag) {
        throw std::invalid_argument(fmt::format("the id {:#x} for the tag {} already belongs to {}", id,
                                                tag.FullName(), holder->FullName()));
    }
    tagOfId_.erase(Id(tag));
    tagOfId_[id] = &tag;
}

}  // namespace desk
