// Damaged and hostile scene files.

#include "files_support.h"

#include <OpenSG/OSGTriangleIterator.h>

#include <random>

namespace {

using namespace scene_files;

/// Walks what was read as a user would.
void useScene(const NodePtr& root) {
    root->updateVolume();
    for (UInt32 i = 0; i < root->getNChildren(); ++i) {
        const GeometryPtr geometry = GeometryPtr::dcast(root->getChild(i)->getCore());
        if (geometry == NullFC || geometry->getPositions() == NullFC)
            continue;
        int triangles = 0;
        TriangleIterator it = geometry->beginTriangles();
        for (; it != geometry->endTriangles() && ++triangles < 1000; ++it) {
            for (Int32 corner = 0; corner < 3; ++corner)
                it.getPosition(corner);
        }
    }
    EXPECT_FALSE(canonical_text::of(root).empty());
    EXPECT_FALSE(written(root).empty());
}

TEST(SceneFilesDamage, FlippedBytesAndCutsNeverDoHarm) {
    const std::string whole = [] { return written(sampleScene()); }();
    const std::size_t alive = liveContainers();
    std::mt19937 rng(60601);
    int refused = 0;
    const int rounds = 1500;
    for (int round = 0; round < rounds; ++round) {
        std::string bytes = whole;
        const unsigned flips = round % 4 == 0 ? 0 : 1 + static_cast<unsigned>(rng() % 5);
        for (unsigned i = 0; i < flips; ++i)
            bytes[rng() % bytes.size()] ^= char(1u << rng() % 8);
        if (flips == 0)
            bytes.resize(rng() % bytes.size());
        const NodeRefPtr root(readBack(bytes));
        if (flips == 0) {
            EXPECT_EQ(root, NullFC) << bytes.size();
        }
        refused += root == NullFC ? 1 : 0;
        if (root != NullFC)
            useScene(root);
    }
    EXPECT_EQ(liveContainers(), alive);
    EXPECT_GT(refused, rounds / 4);
    EXPECT_LT(refused, rounds) << "flips inside values go unnoticed";
}

// ---- files made by hand -------------------------------------------------------------------

template <class T> std::string raw(T number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof(T));
}
std::string text(const std::string& word) { return raw(UInt32(word.size())) + word; }

std::string field(const std::string& name, int kind, const std::string& data) {
    return text(name) + raw(UInt8(kind)) + raw(UInt64(data.size())) + data;
}
std::string links(const std::string& name, const std::vector<UInt32>& targets) {
    std::string data = raw(UInt32(targets.size()));
    for (const UInt32 target : targets)
        data += raw(target);
    return field(name, 1, data);
}
std::string attachments(const std::vector<std::pair<UInt16, UInt32>>& entries) {
    std::string data = raw(UInt32(entries.size()));
    for (const auto& entry : entries)
        data += raw(entry.first) + raw(entry.second);
    return field("attachments", 2, data);
}

/// A file of containers numbered in order: type and fields of each.
std::string fileOf(const std::vector<std::pair<std::string, std::string>>& containers) {
    std::string bytes("\x89OSB\r\n\x1a\n", 8);
    bytes += raw(UInt32(0x01020304)) + raw(UInt32(1));
    UInt32 number = 0;
    for (const auto& [type, fields] : containers) {
        bytes += text(type) + raw(++number) + raw(UInt64(fields.size())) + fields;
    }
    return bytes + raw(UInt32(0));
}

std::string chainOf(UInt32 nodes) {
    std::vector<std::pair<std::string, std::string>> containers;
    for (UInt32 i = 1; i <= nodes; ++i) {
        containers.emplace_back("Node", i < nodes ? links("children", {i + 1}) : std::string());
    }
    return fileOf(containers);
}

struct handmade_case {
    const char* name;
    std::string bytes;
    bool readable;
};

class SceneFilesByHand : public testing::TestWithParam<handmade_case> {};

TEST_P(SceneFilesByHand, AreReadOrRefusedWithoutALeak) {
    const std::size_t alive = liveContainers();
    {
        const NodeRefPtr root(readBack(GetParam().bytes));
        EXPECT_EQ(root != NullFC, GetParam().readable);
        if (root != NullFC) {
            EXPECT_EQ(root.get().getRefCount(), 1u);
        }
    }
    EXPECT_EQ(liveContainers(), alive);
}

const std::string lone = fileOf({{"Node", ""}});
const UInt64 huge = 0xFFFFFFFFFFFFFFF0u;

INSTANTIATE_TEST_SUITE_P(
    , SceneFilesByHand,
    testing::Values(
        handmade_case{"lone_node", lone, true}, handmade_case{"nothing", "", false},
        handmade_case{"other_magic", "X" + lone.substr(1), false},
        handmade_case{"other_order", lone.substr(0, 8) + raw(UInt32(0x04030201)) + lone.substr(12),
                      false},
        handmade_case{"other_version", lone.substr(0, 12) + raw(UInt32(2)) + lone.substr(16),
                      false},
        handmade_case{"no_container", fileOf({}), false},
        handmade_case{"core_on_top", fileOf({{"Group", ""}}), false},
        handmade_case{"unknown_on_top", fileOf({{"NoSuchType", ""}}), false},
        handmade_case{"abstract_type", fileOf({{"Node", links("core", {2})}, {"NodeCore", ""}}),
                      true},
        handmade_case{"unused_container", fileOf({{"Node", ""}, {"Group", ""}}), true},
        handmade_case{"chain", chainOf(2001), true},
        handmade_case{"chain_too_long", chainOf(2002), false},
        handmade_case{"own_child", fileOf({{"Node", links("children", {1})}}), false},
        handmade_case{"circle",
                      fileOf({{"Node", links("children", {2})},
                              {"Node", links("children", {3})},
                              {"Node", links("children", {2})}}),
                      false},
        handmade_case{"circle_aside",
                      fileOf({{"Node", ""},
                              {"SwitchMaterial", links("materials", {3})},
                              {"SwitchMaterial", links("materials", {2})}}),
                      false},
        handmade_case{"circle_of_attachments",
                      fileOf({{"Node", attachments({{0, 2}})},
                              {"StringAttributeMap", attachments({{0, 2}})}}),
                      false},
        handmade_case{"root_below_another",
                      fileOf({{"Node", ""}, {"Node", links("children", {1})}}), false},
        handmade_case{"two_parents",
                      fileOf({{"Node", links("children", {2, 3})},
                              {"Node", links("children", {4})},
                              {"Node", links("children", {4})},
                              {"Node", ""}}),
                      false},
        handmade_case{"twice_a_child", fileOf({{"Node", links("children", {2, 2})}, {"Node", ""}}),
                      false},
        handmade_case{"number_too_high", fileOf({{"Node", links("children", {7})}}), false},
        handmade_case{"zero_is_none", fileOf({{"Node", links("children", {0, 0})}}), true},
        handmade_case{"core_as_child", fileOf({{"Node", links("children", {2})}, {"Group", ""}}),
                      false},
        handmade_case{"node_as_core", fileOf({{"Node", links("core", {2})}, {"Node", ""}}), false},
        handmade_case{"two_cores",
                      fileOf({{"Node", links("core", {2, 3})}, {"Group", ""}, {"Group", ""}}),
                      false},
        handmade_case{"shared_core",
                      fileOf({{"Node", links("core", {2}) + links("children", {3})},
                              {"Group", ""},
                              {"Node", links("core", {2})}}),
                      true},
        handmade_case{"group_as_attachment",
                      fileOf({{"Node", attachments({{0, 2}})}, {"Group", ""}}), false},
        handmade_case{"links_cut_short",
                      fileOf({{"Node", field("children", 1, raw(UInt32(0xFFFFFFFF)))}}), false},
        handmade_case{"attachments_cut_short",
                      fileOf({{"Node", field("attachments", 2, raw(UInt32(0xFFFFFFFF)))}}), false},
        handmade_case{"link_as_value", fileOf({{"Node", field("core", 0, raw(UInt32(1)))}}), false},
        handmade_case{"value_as_link", fileOf({{"Node", links("travMask", {1})}}), true},
        handmade_case{"value_too_short", fileOf({{"Node", field("travMask", 0, "abc")}}), false},
        handmade_case{"value_too_long", fileOf({{"Node", field("travMask", 0, "abcde")}}), false},
        handmade_case{"inner_field", fileOf({{"Node", field("parent", 0, raw(UInt32(1)))}}), true},
        handmade_case{"unknown_kind", fileOf({{"Node", field("travMask", 9, "??")}}), true},
        handmade_case{
            "long_list",
            fileOf({{"Node", ""}, {"Image", field("pixel", 0, raw(UInt32(0xFFFFFFFF)) + "abc")}}),
            false},
        handmade_case{
            "long_text",
            fileOf({{"Node", ""}, {"Name", field("name", 0, raw(UInt32(0xFFFFFFF0)) + "abc")}}),
            false},
        handmade_case{"image_without_its_pixels",
                      fileOf({{"Node", ""},
                              {"Image", field("width", 0, raw(Int32(4000))) +
                                            field("pixelFormat", 0, raw(UInt32(6407))) +
                                            field("pixel", 0, raw(UInt32(2)) + "ab")}}),
                      false},
        handmade_case{"image_of_negative_size",
                      fileOf({{"Node", ""},
                              {"Image", field("width", 0, raw(Int32(-1))) +
                                            field("pixelFormat", 0, raw(UInt32(6409))) +
                                            field("pixel", 0, raw(UInt32(1)) + "a")}}),
                      false},
        handmade_case{"keys_without_values",
                      fileOf({{"Node", attachments({{0, 2}})},
                              {"StringAttributeMap",
                               field("keys", 0, raw(UInt32(1)) + raw(UInt32(2)) + "a" + '\0')}}),
                      false},
        handmade_case{"endless_field",
                      fileOf({{"Node", text("travMask") + raw(UInt8(0)) + raw(huge)}}), false},
        handmade_case{"endless_container",
                      lone.substr(0, 16) + text("Node") + raw(UInt32(1)) + raw(huge) + "abc",
                      false},
        handmade_case{"endless_name", lone.substr(0, 16) + raw(UInt32(0xFFFFFFF0)) + "Node", false},
        handmade_case{"wrong_number",
                      lone.substr(0, 16) + text("Node") + raw(UInt32(2)) + raw(UInt64(0)) +
                          raw(UInt32(0)),
                      false}),
    [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
