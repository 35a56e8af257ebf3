// What the host asks of those who look tags up, read and publish them, and tell of requests.

#include "tests/desk/rules/rules.h"

namespace {

using namespace desk;

const TagRegistry tags;  // with the ids of every host
const Tag& grid = TagOf(TagKind::Grid, RT);
const Tag& extra = TagOf(TagKind::ExtraBuffers);

// Each makes a call as it should be, but for what is spoilt.
template <typename Record>
using Spoil = std::function<void(Record&)>;

void LookUp(
    RogueCall& c, const Tag& tag, const Spoil<LumVendorTagBaseInfo>& spoil = [](auto&) {}) {
    LumVendorTagBaseInfo info = {sizeof(info), 0, tag.section, tag.name};
    spoil(info);
    c.services.GetVendorTagBase(&info);
}

struct Publication {
    uint32_t id;
    LumTagData data;
    LumMetadataInfo info;
};

void Publish(
    RogueCall& c, const Tag& tag, const Spoil<Publication>& spoil = [](auto&) {}) {
    static IPEICAGridTransform payload;  // the largest
    Publication made = {tags.Id(tag) | tag.flag, {}, {}};
    made.data = {sizeof(made.data), 0, 0, &payload, tag.payloadSize, {}};
    made.info = {sizeof(made.info), 0, c.session, 1, 0, &made.id, &made.data, tag.pool, {}};
    spoil(made);
    c.services.SetMetadata(&made.info);
}

void Notify(
    RogueCall& c, const Spoil<LumRequestDoneInfo>& spoil = [](auto&) {}) {
    LumRequestDoneInfo done = {sizeof(done), 0, c.session, 7, 0};
    spoil(done);
    c.services.NotifyRequestDone(&done);
}

void Read(RogueCall& c, uint32_t tag, uint64_t id = 7, LumMetadataType pool = Vendor, uint32_t last = 0) {
    LumNodeUtils::GetMetaData(id, tag, pool, &c.services, c.session, last);
}

void QueryWindow(RogueCall& c, void* session, LumRequestWindowInfo window = {}) {
    c.services.QueryRequestWindow(session, &window);
}

TEST(Metadata, TheTableIsTheHosts) {
    const auto call = [](void* slot) { reinterpret_cast<uint32_t (*)()>(slot)(); };
    LumNodeInterface copy = {};
    uint32_t base = 0;
    Expect({PhaseInterface},
           {{"another name", DO(LumNodeUtils::SetNodeInterface(&c.services, "com.other", &copy, &base))}});
    Expect({PhaseSecondPass}, {{"slot 3", DO(call(c.services.reservedSlot3))},
                               {"slot 5", DO(call(c.services.reservedSlots5[0]))},
                               {"slot 31", DO(call(c.services.reservedSlots17[14]))},
                               {"slot 0", DO(c.services.GetMetadata(nullptr))},
                               {"another table", DO(++c.services.minorVersion; Read(c, tags.Id(grid)))}});
}

TEST(Metadata, TagsAreLookedUpAndRead) {
    Expect({PhaseQuery}, {{"a tag looked up too late", DO(LookUp(c, grid))}});
    Expect({PhaseCreate}, {{"the other's tag looked up", DO(LookUp(c, TagOf(TagKind::Grid, LA)))},
                           {"no section", DO(LookUp(c, grid, WITH(pComponentName = nullptr)))},
                           {"no tag name", DO(LookUp(c, grid, WITH(pTagName = nullptr)))},
                           {"a short lookup", DO(LookUp(c, grid, WITH(size = 20)))},
                           {"a lookup with an id", DO(LookUp(c, grid, WITH(vendorTagBase = 1)))},
                           {"an unknown tag", DO(LookUp(c, grid, WITH(pComponentName = "no")))}});
    Expect({PhaseQuery},
           {{"a tag read without its flag", DO(Read(c, tags.Id(TagOf(TagKind::RequestedMargin, RT)), 0))}});
    Expect({PhaseSecondPass},
           {{"an unknown tag read", DO(Read(c, 5))},
            {"another request's tag read", DO(Read(c, tags.Id(grid), 8))},
            {"another pool read", DO(Read(c, tags.Id(grid), 7, LumMetadataTypeUnset))},
            {"a reserved argument", DO(Read(c, tags.Id(grid), 7, Vendor, 1))},
            {"another session's tag read", DO(c.session = &elsewhere; Read(c, tags.Id(grid)))}});
}

// Each use of each tag in each step that has a place for the use: which of them the host has nothing against.
TEST(Metadata, TagsHaveTheirPlacesAndTheirNodes) {
    const auto lookUp = [](RogueCall& c, const Tag& tag) { LookUp(c, tag); };
    const auto publish = [](RogueCall& c, const Tag& tag) { Publish(c, tag); };
    const auto read = [](RogueCall& c, const Tag& tag) {
        Read(c, tags.Id(tag) | tag.flag, c.step == PhaseQuery ? 0 : 7, tag.pool);
    };
    const struct {
        Phase step;
        const char* does;
        std::function<void(RogueCall&, const Tag&)> make;
    } uses[] = {{PhaseCreate, "looks up", lookUp},   {PhaseQuery, "looks up", lookUp},
                {PhaseQuery, "reads", read},         {PhaseSecondPass, "reads", read},
                {PhaseCreate, "publishes", publish}, {PhaseQuery, "publishes", publish}};
    std::vector<std::string> allowed;
    for (const Variant variant : {RT, LA}) {
        for (const auto& use : uses) {
            for (uint32_t id = 0x80010000; const Tag* tag = tags.Resolve(id); ++id) {
                const auto findings = FindingsOf({use.step, variant}, DO(use.make(c, *tag)));
                const std::string done = Caller(use.step, variant) + " " + use.does + " " + tag->FullName();
                EXPECT_THAT(findings, ::testing::Each(::testing::StartsWith(done + ", ")));
                if (findings.empty()) {
                    allowed.push_back(done);
                }
            }
        }
    }
    EXPECT_EQ(allowed, Sentences("a use"));
    TagRegistry pinned;
    pinned.Pin(grid, 1);
    pinned.Pin(grid, 1);
    EXPECT_EQ(pinned.Resolve(1), &grid);
    for (const uint32_t id : {1U, LumTagFlagStabilizer | 2U, LumTagFlagExtraBuffers | 2U}) {
        EXPECT_THROW(pinned.Pin(extra, id), std::invalid_argument) << id;
    }
}

TEST(Metadata, TagsArePublishedAndRequestsToldOf) {
    Expect({PhaseCreate},
           {{"a short publication", DO(Publish(c, extra, WITH(info.size = 48)))},
            {"two tags", DO(Publish(c, extra, WITH(info.tagCount = 2)))},
            {"no ids", DO(Publish(c, extra, WITH(info.pTagIds = nullptr)))},
            {"no data", DO(Publish(c, extra, WITH(info.pTagData = nullptr)))},
            {"another session's publication", DO(Publish(c, extra, WITH(info.hSession = &elsewhere)))},
            {"an unknown tag published", DO(Publish(c, extra, WITH(id = 5)))},
            {"a tag published without its flag", DO(Publish(c, extra, WITH(id = tags.Id(extra))))},
            {"another pool published", DO(Publish(c, extra, WITH(info.metadataType = Vendor)))},
            {"a request's publication", DO(Publish(c, extra, WITH(data.requestId = 7)))},
            {"reserved byte 4", DO(Publish(c, extra, WITH(info.reserved4 = 1)))},
            {"reserved byte 20", DO(Publish(c, extra, WITH(info.reserved20 = 1)))},
            {"reserved byte 55", DO(Publish(c, extra, WITH(info.reserved44[11] = 1)))},
            {"reserved byte 4 of the data", DO(Publish(c, extra, WITH(data.reserved4 = 1)))},
            {"reserved byte 47 of the data", DO(Publish(c, extra, WITH(data.reserved32[15] = 1)))},
            {"short data", DO(Publish(c, extra, WITH(data.size = 40)))},
            {"a long payload", DO(Publish(c, extra, WITH(data.dataSize = 8)))},
            {"no payload", DO(Publish(c, extra, WITH(data.pData = nullptr)))}});
    Expect({PhaseFirstPass}, {{"two windows", DO(QueryWindow(c, c.session))},
                              {"a window with a byte", DO(QueryWindow(c, c.session, {{0, 0}, 0, 1}))},
                              {"another session's window", DO(QueryWindow(c, &elsewhere))},
                              {"a notice in real time", DO(Notify(c))}});
    Expect({PhaseFirstPass, LA},
           {{"two notices", DO(Notify(c))},
            {"another request's notice", DO(Notify(c, WITH(requestId = 8)))},
            {"a short notice", DO(Notify(c, WITH(size = 24)))},
            {"reserved byte 4 of a notice", DO(Notify(c, WITH(reserved4 = 1)))},
            {"reserved byte 24 of a notice", DO(Notify(c, WITH(reserved24 = 1)))},
            {"another session's notice", DO(Notify(c, WITH(hNodeSession = &elsewhere)))}});
}

}  // namespace
