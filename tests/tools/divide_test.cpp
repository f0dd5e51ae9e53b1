// Division of nodes, beside a twin that takes the steps one by one and calls itself.

#include <morva/tools/morva_divide_geonodes.h>

#include <OpenSG/OSGPrimitiveIterator.h>

#include <morva/core/morva_osg.h>
#include <morva/geosets/morva_osg_splitmodel.h>

#include "tests/geosets/triangle_scenes.h"
#include "tests/support/shortage.h"

namespace {

using namespace morva::osg;
using ::osg::NodePtr;
using ::osg::Vec3f;

// ---------------------------------------------------------------------------------- the twin

Vec3f worldSize(const NodePtr& node) {
    ::osg::DynamicVolume volume;
    node->getWorldVolume(volume);
    ::osg::Pnt3f low, high;
    volume.getBounds(low, high);
    return high - low;
}

/// Lines and points of a node, corner by corner, below a node of their own; null for none.
NodePtr thinNode(const NodePtr& node) {
    mesh_data mesh;
    const ::osg::GeometryPtr core = coreOf(node);
    for (auto it = core->beginPrimitives(); !it.isAtEnd(); ++it) {
        const auto length = it.getType() <= 3 ? it.getLength() : 0;
        if (length > 0)
            mesh.primitives.push_back({it.getType(), length});
        for (::osg::UInt32 i = 0; i < length; ++i) {
            const tri::corner c = tri::cornerAt(it, static_cast<::osg::Int32>(i));
            mesh.positions.push_back(c.position);
            mesh.normals.push_back(c.normal);
            mesh.colors.push_back(c.color);
            mesh.coordinates.push_back(c.uv[0]);
            mesh.ids.push_back(c.id);
        }
    }
    return mesh.primitives.empty() ? NodePtr() : meshNode(mesh, core->getMaterial());
}

void takePlace(const NodePtr& node, const NodePtr& made, const NodePtr& thin) {
    const NodePtr parent = node->getParent();
    if (parent != ::osg::NullFC && ::osg::getName(node) != nullptr)
        ::osg::setName(made, ::osg::getName(node));
    made->setTravMask(node->getTravMask());
    while (node->getNChildren() > 0)
        made->addChild(node->getChild(0));
    if (thin != ::osg::NullFC)
        made->addChild(thin);
    if (parent != ::osg::NullFC)
        parent->replaceChildBy(node, made);
}

void becomeRoot(const NodePtr& root, const NodePtr& made) {
    root->setCore(made->getCore());
    while (made->getNChildren() > 0)
        root->addChild(made->getChild(0));
}

struct naive_tree {
    naive_tree(const NodePtr& node, unsigned most, unsigned depth, int mode) {
        extract(node, geoset, false, false, false, true, true);
        if (geoset.size > 0)
            morva::compile(geoset, tree, {most, depth, mode, 1.0F, 2.0F, 0.95F, false},
                           morva::kd_strategy_median());
    }
    osg_geoset geoset;
    morva::kd_tree<float> tree;
};

struct size_limits {
    Vec3f reference;
    float limit;
    unsigned max_depth;
    int mode, opt;
};

void naiveCheck(NodePtr node, const size_limits& l, std::uint64_t depth) {
    if (depth + 1 > l.max_depth)
        return;
    const Vec3f size = worldSize(node);
    if (coreOf(node) == ::osg::NullFC) {
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
            naiveCheck(node->getChild(i), l, depth + 1);
        return;
    }
    bool above = false;
    for (::osg::UInt32 axis = 0; axis < 3; ++axis)
        above = above || size[axis] / l.reference[axis] > l.limit;
    if (!above)
        return;
    naive_tree sorted(node, 1, 1, l.mode);
    if (sorted.geoset.size == 0)
        return;
    const node_ref kept(node->getParent() == ::osg::NullFC ? NodePtr() : node);
    const node_ref made(Split(sorted.tree, sorted.geoset, 0, 2, 0, ::osg::NullFC, l.opt, true));
    if (made->getNChildren() < 2 || sorted.tree.nodes[1].range_count() == sorted.geoset.size ||
        sorted.tree.nodes[2].range_count() == sorted.geoset.size)
        return;
    const bool is_root = node->getParent() == ::osg::NullFC;
    takePlace(node, made.get(), thinNode(node));
    for (::osg::UInt32 i = 0; i < 2; ++i)
        naiveCheck(made->getChild(i), l, depth + 1);
    if (is_root)
        becomeRoot(node, made.get());
}

void naiveSplit(NodePtr node, unsigned most, bool force, int opt) {
    if (node->getCore() == ::osg::NullFC)
        return;
    if (coreOf(node) == ::osg::NullFC) {
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
            naiveSplit(node->getChild(i), most, force, opt);
        return;
    }
    if (!force && getNumberOfTriangles(coreOf(node)) <= most)
        return;
    naive_tree sorted(node, most, 30, 3);
    if (sorted.geoset.size == 0)
        return;
    const node_ref kept(node->getParent() == ::osg::NullFC ? NodePtr() : node);
    const node_ref made(Split(sorted.tree, sorted.geoset, 0, 0, most, ::osg::NullFC, opt, true));
    if (geometryNodes(made.get()).size() == 1 && sorted.geoset.size > most)
        return;
    const bool is_root = node->getParent() == ::osg::NullFC;
    takePlace(node, made.get(), thinNode(node));
    if (is_root)
        becomeRoot(node, made.get());
}

// ------------------------------------------------------------------------- scenes and their text

/// Everything that a scene is: nodes, cores, and of geometry the corners in their order.
void describe(const NodePtr& node, std::ostringstream& out) {
    const char* name = ::osg::getName(node);
    out << (name != nullptr ? name : "-") << ' ' << node->getTravMask() << ' '
        << (node->getCore() == ::osg::NullFC ? "" : node->getCore()->getType().getCName());
    const ::osg::GeometryPtr core = coreOf(node);
    if (core != ::osg::NullFC) {
        out << (core->getMaterial() == ::osg::NullFC ? " bare" : " red");
        for (auto it = core->beginPrimitives(); !it.isAtEnd(); ++it) {
            out << '\n' << it.getType() << ':' << it.getLength();
            for (::osg::UInt32 i = 0; i < it.getLength(); ++i) {
                const auto values = tri::numbersOf(tri::cornerAt(it, static_cast<int>(i)));
                for (const float value : values)
                    out << ' ' << value;
            }
        }
    }
    out << "(\n";
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        describe(node->getChild(i), out);
    out << ")\n";
}

std::string described(const NodePtr& node) {
    std::ostringstream out;
    out << std::hexfloat;
    describe(node, out);
    return out.str();
}

/// Triangles of many kinds, some with lines and points, with no extent, in one place, or far off.
mesh_data anyMesh(std::mt19937& rng) {
    const std::size_t count = rng() % 24;
    const mesh_data shapes[] = {soup(rng, count),          strip(3 + count),
                                quads(1 + count),          mixture(rng, 1 + rng() % 6),
                                row(2 + count, rng() % 4), fan(3 + count)};
    mesh_data mesh = shapes[rng() % 6];
    const unsigned kind = rng() % 8;
    for (::osg::Pnt3f& p : mesh.positions)
        p = kind == 0 ? ::osg::Pnt3f(p[0] + 1e6F, p[1] - 1e6F, p[2]) : p;
    for (std::size_t i = 3; kind == 1 && i < mesh.positions.size(); ++i)
        mesh.positions[i] = mesh.positions[i % 3];
    mesh = rng() % 3 == 0 ? mesh : withAttributes(mesh, rng);
    return rng() % 3 == 0 ? withIndexPerProperty(mesh, rng) : mesh;
}

NodePtr anyScene(std::mt19937& rng, const material_map& materials, unsigned levels) {
    node_list children;
    for (unsigned i = rng() % 4; levels > 0 && i > 0; --i)
        children.push_back(anyScene(rng, materials, levels - 1));
    const unsigned kind = levels > 0 ? rng() % 9 : 0;
    NodePtr node;
    if (kind < 4) {
        const mesh_data mesh = anyMesh(rng);
        node = nodeOf(
            morva_test::geometryOf(mesh, rng() % 2 == 0 ? materials.at("plain") : ::osg::NullFC),
            children);
    } else {
        node = kind == 4   ? moved({1e6F, 0.5F, 3}, children)
               : kind == 5 ? switched(0, children)
               : kind == 6 ? detailed(children)
               : kind == 7 ? materialGroup(materials.at("image"), children)
                           : group(children);
    }
    node = rng() % 2 == 0 ? node : named("n" + std::to_string(rng() % 100), node);
    return rng() % 9 == 0 ? hidden(node) : node;
}

TEST(Division, AgreesWithTheStepsTakenOneByOne) {
    const ::osg::RefPtr<::osg::MaterialPtr> plain(simple({1, 0, 0}));
    const ::osg::RefPtr<::osg::MaterialPtr> image(chunked({1, 1, 1, 1}, imageOf(0x1907, 2, 2)));
    const material_map materials{{"plain", plain.get()}, {"image", image.get()}};
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float limits[] = {0.5F, 0.1F, 0, -1, nan, 0.01F, 1, 0.25F};
    const tri::registration_off ids_are_kept;
    unsigned& names = getIDmapHandler().mergedCount;
    unsigned changed = 0;
    for (unsigned round = 0; round < 3000 && !HasFailure(); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        std::mt19937 rng(round), again(round), dice(round);
        const node_ref scene(anyScene(rng, materials, round % 4));
        const node_ref twin(anyScene(again, materials, round % 4));
        const std::string before = described(scene.get());
        const int opt = static_cast<int>(dice() % 5), mode = static_cast<int>(1 + dice() % 3);
        const unsigned most = dice() % 12, first = names;
        const size_limits sizes{worldSize(twin.get()), limits[dice() % 8],
                                static_cast<unsigned>(dice() % 9), mode, opt};
        const bool by_size = dice() % 2 == 0, force = dice() % 3 == 0;
        const std::string told = tri::toldBy([&] {
            if (by_size)
                check_and_split(scene.get(), sizes.limit, sizes.max_depth, mode, opt);
            else
                split_Geometries(scene.get(), most, force, opt);
        });
        names = first;
        EXPECT_EQ(told, tri::toldBy([&] {
                      if (by_size)
                          naiveCheck(twin.get(), sizes, 0);
                      else
                          naiveSplit(twin.get(), std::max(1U, most), force, opt);
                  }));
        ASSERT_EQ(described(scene.get()), described(twin.get()));
        changed += described(scene.get()) != before ? 1 : 0;
    }
    EXPECT_GT(changed, 1000U);
}
} // namespace
