#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "desk/host/rules/node_call.h"

namespace desk {

/// One vendor tag of the host and the rules of its use by a dewarp node.
struct Tag {
    const char* section = nullptr;
    const char* name = nullptr;
    uint64_t payloadSize = 0;  ///< bytes
    uint32_t flag = 0;         ///< host flag that comes with the id in metadata accesses, or 0
    unsigned lookup = 0;       ///< phases in which a node resolves it
    unsigned read = 0;         ///< phases in which a node reads it
    unsigned write = 0;        ///< phases in which a node publishes it
    LumMetadataType pool = LumMetadataTypeUnset;  ///< metadata type of the accesses
    std::optional<Variant> variant;               ///< whose tag it is; both variants' when empty

    std::string FullName() const {
        return std::string(section) + "/" + name;
    }
};

/// The tags that the desk's tests and tools give payloads to or look for.
enum class TagKind { Grid, RequestedMargin, OutputDims, Preview, ExtraBuffers };
/// The variant's own; of the last two kinds there is one for both.
const Tag& TagOf(TagKind kind, Variant variant = Variant::RealTime);

/// The ids under which the host registered its vendor tags. Not locked: ids are pinned while no node
/// runs, and lookups only read.
class TagRegistry {
public:
    TagRegistry();

    /// Null when the host has no such tag.
    const Tag* Find(std::string_view section, std::string_view name) const;
    /// The tag of an id, whether or not the host's flag bits are set in it; null when there is none.
    const Tag* Resolve(uint32_t id) const;
    /// The id without any flag bit; a metadata access carries the tag's flag beside it.
    uint32_t Id(const Tag& tag) const;

    /// Gives a tag another id. Throws std::invalid_argument when the id has a flag bit set or belongs to
    /// another tag.
    void Pin(const Tag& tag, uint32_t id);

private:
    std::vector<uint32_t> ids_;  // in the order of the tags
};

}  // namespace desk
