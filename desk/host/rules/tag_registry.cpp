#include "desk/host/rules/tag_registry.h"

#include <fmt/core.h>

#include <algorithm>
#include <iterator>
#include <numeric>
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
constexpr uint64_t GridSize = sizeof(IPEICAGridTransform);
constexpr uint64_t MarginSize = sizeof(LumStabilizationMargin);
constexpr uint64_t DimsSize = sizeof(LumStabilizedOutputDims);
constexpr uint64_t PerspectiveSize = 360;

constexpr auto RT = Variant::RealTime;
constexpr auto LA = Variant::LookAhead;

// The look-ahead node's stands after the real-time node's. "LookAhead" and "Lookahead" differ on purpose:
// these are the names in use.
constexpr Tag Tags[] = {
    {ImageConfigs, "ICAInGridTransform", GridSize, 0, PhaseCreate, PhaseSecondPass, 0, Vendor, RT},
    {ImageConfigs, "ICAInGridTransformLookahead", GridSize, 0, PhaseCreate, PhaseSecondPass, 0, Vendor, LA},
    {RealTimeEis, "RequestedMargin", MarginSize, Stabilizer, PhaseQuery, PhaseQuery, 0, Vendor, RT},
    {LookAheadEis, "RequestedMargin", MarginSize, Stabilizer, PhaseQuery, PhaseQuery, 0, Vendor, LA},
    {RealTimeEis, "StabilizedOutputDims", DimsSize, Stabilizer, PhaseQuery, 0, PhaseQuery, Vendor, RT},
    {LookAheadEis, "StabilizedOutputDims", DimsSize, Stabilizer, PhaseQuery, 0, PhaseQuery, Vendor, LA},
    {ImageConfigs, "ICAInPerspectiveTransform", PerspectiveSize, 0, PhaseCreate, 0, 0, Vendor, RT},
    {ImageConfigs, "ICAInPerspectiveTransformLookAhead", PerspectiveSize, 0, PhaseCreate, 0, 0, Vendor, LA},
    {StreamPresent, "preview", 1, 0, PhaseCreate, PhaseSecondPass, 0, Vendor, RT},
    {ImageConfigs, "ExtraFrameworkBuffers", sizeof(uint32_t), Extra, PhaseCreate, 0, PhaseCreate, Unset, {}},
};
// Clear of both flag bits, and far from the small numbers that tests pin.
constexpr uint32_t FirstId = 0x80010000;
constexpr uint32_t FlagBits = LumTagFlagStabilizer | LumTagFlagExtraBuffers;

}  // namespace

const Tag& TagOf(TagKind kind, Variant variant) {
    constexpr size_t Rows[] = {0, 2, 4, 8, 9};  // the kinds' first
    const bool isSecond = kind <= TagKind::OutputDims && variant == LA;
    return Tags[Rows[static_cast<size_t>(kind)] + (isSecond ? 1 : 0)];
}

TagRegistry::TagRegistry() : ids_(std::size(Tags)) {
    std::iota(ids_.begin(), ids_.end(), FirstId);
}

const Tag* TagRegistry::Find(std::string_view section, std::string_view name) const {
    const auto* tag = std::find_if(std::begin(Tags), std::end(Tags), [&](const Tag& known) {
        return section == known.section && name == known.name;
    });
    return tag == std::end(Tags) ? nullptr : tag;
}

const Tag* TagRegistry::Resolve(uint32_t id) const {
    const auto found = std::find(ids_.begin(), ids_.end(), id & ~FlagBits);
    return found == ids_.end() ? nullptr : &Tags[found - ids_.begin()];
}

uint32_t TagRegistry::Id(const Tag& tag) const {
    return ids_.at(static_cast<size_t>(&tag - Tags));
}

void TagRegistry::Pin(const Tag& tag, uint32_t id) {
    const Tag* holder = Resolve(id);
    if ((id & FlagBits) != 0 || (holder != nullptr && holder != &tag)) {
        throw std::invalid_argument(
            fmt::format("the id {:#x} cannot be that of the tag {}; expected one that no other tag has, "
                        "without the bits {:#x}",
                        id, tag.FullName(), FlagBits));
    }
    ids_.at(static_cast<size_t>(&tag - Tags)) = id;
}

}  // namespace desk
