// What the library changes, as another aspect sees it once the change list was applied to it.

#include "tests/support/aspect_threads.h"
#include "tests/support/test.h"

#include <OpenSG/OSGChangeList.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/draworder/morva_osg_cacheopt.h>
#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/driver/morva_osg_scene_placement.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/textures/morva_osg_texcoords.h>
#include <morva/tools/morva_divide_geonodes.h>

namespace {

using ::osg::FieldContainerPtr;
using ::osg::NodePtr;

/// All containers with numbers from `first` to `last` as the calling thread's aspect has them:
/// their fields as text, but for volumes, which each aspect brings up to date by itself.
std::string described(::osg::UInt32 first, ::osg::UInt32 last) {
    std::ostringstream out;
    for (::osg::UInt32 id = first; id <= last; ++id) {
        const FieldContainerPtr at = ::osg::FieldContainerFactory::the()->getContainer(id);
        for (::osg::UInt32 i = 0; at != ::osg::NullFC && i < 32; ++i) {
            const ::osg::FieldDescription* field = at->getType().getFieldDescription(i);
            std::string value;
            if (i == 0)
                out << '\n' << id << ' ' << at->getType().getCName();
            else if (field != nullptr && std::string(field->getCName()) != "volume")
                out << ", " << field->getCName() << ": " << at->getField(i)->getValueByStr(value);
        }
        const auto attached = ::osg::AttachmentContainerPtr::dcast(at);
        if (attached != ::osg::NullFC && ::osg::getName(attached) != nullptr)
            out << ", named " << ::osg::getName(attached);
    }
    return out.str();
}

/// A bit of everything that a pass may meet; equal squares, `size` of them in each part.
NodePtr variety(std::size_t size) {
    const auto squares = [&](bool coloured) {
        mesh_data mesh = quads(size);
        for (std::size_t i = 0; i < mesh.positions.size(); ++i) // some triangles will be cut
            mesh.coordinates.emplace_back(i % 4 == 0 ? 7.0F : 0.0F, 0.5F);
        if (coloured)
            mesh.colors.assign(mesh.positions.size(), {0, 1, 0});
        return mesh;
    };
    const ::osg::MaterialPtr red = simple({1, 0, 0}),
                             image = chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 2, 2)),
                             other = chunked({0, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 4, 2)),
                             glass = chunked({0, 0, 1, 0.5F});
    using morva_test::named;
    // A core of two nodes and a property of two cores: one of each lets go of it.
    const NodePtr a = named("a", meshNode(squares(false), other));
    const NodePtr green = named("green", meshNode(squares(true)));
    const NodePtr near = named("near", meshNode(squares(false), red));
    coreOf(near)->setColors(coreOf(green)->getColors());
    return named("top",
                 group({moved({1, 2, 3}, {a, group()}), hidden(nodeOf(a->getCore())), green,
                        materialGroup(image, {named("b", meshNode(squares(false)))}),
                        named("b", meshNode(cube(), simple({1, 0, 0}))),
                        group({group({named("glass", meshNode(squares(false), glass))})}),
                        switched(1, {meshNode(row(3, 1)), meshNode(squares(false), red)}),
                        detailed({near, meshNode(row(3, 1))}), named("lines", meshNode(row(4, 1))),
                        meshNode(mesh_data()), ::osg::Node::create()}));
}

using pass = std::function<node_ref(const NodePtr&)>;

pass optTreeBy(const std::string& parameters) {
    return [parameters](const NodePtr& above) {
        const node_ref root(above->getChild(0));
        return node_ref(morva::osg::optTree(root.get(), parameters));
    };
}

node_ref cleanUp(const NodePtr& root) {
    morva::osg::centerGeoPositions(root, "1:2:3");
    morva::osg::removeSwitchParts(root);
    morva::osg::removeLODParts(root);
    morva::osg::RenameMultipleNodeNames(root, false);
    morva::osg::removeEmptyParts(root);
    morva::osg::RemoveGroupNodes(root);
    const node_ref collected(morva::osg::CollectNonMaterialNodes(root));
    const ::osg::MaterialPtr cyan = simple({0, 1, 1});
    ::osg::endEditCP(cyan);
    morva::osg::changeMaterialsInScene(root, cyan);
    return collected;
}

node_ref changeCores(const NodePtr& root) {
    for (NodePtr node : geometryNodes(root)) {
        morva::osg::setMaterialInGeometry(node);
        morva::osg::VertexColorIntoMaterial(coreOf(node), false);
        morva::osg::MaterialColorIntoVertex(node);
        morva::osg::MaterialColorIntoVertex(node);
        morva::osg::addTransformChunk(coreOf(node));
        morva::osg::createSharedIndex(coreOf(node));
        morva::osg::optimizeTexCoords(node, 2, 50);
    }
    return node_ref(morva::osg::CollectNodesWithTexCoordsGreater(root, 1));
}

/// What there is after a pass, by the aspect that it ran in and by another one.
struct comparison {
    std::string made, seen;
    ::osg::UInt32 entries = 0; ///< in the change list of the pass
};

comparison compare(const pass& act, std::size_t size) {
    ::osg::Thread *builder = threadOf("builder"), *viewer = threadOf("viewer");
    ::osg::UInt32 first = 0, last = 0;
    const auto newNumber = [] {
        return node_ref(::osg::Node::create()).get().getFieldContainerId();
    };
    node_ref root, made;
    comparison result, at_end;
    const auto build = [&](comparison& to, const std::function<void()>& work) {
        runIn(builder, 0, [&] {
            const ::osg::ChangeList& changes = *::osg::Thread::getCurrentChangeList();
            const ::osg::UInt32 before = newNumber();
            work();
            last = newNumber();
            EXPECT_EQ(changes.sizeCreated(), last - before + 1) << "whoever made them";
            to.entries = changes.sizeChanged();
        });
        runIn(viewer, 1, [&] {
            builder->getChangeList()->applyToCurrent();
            to.seen = described(first, last);
        });
        to.made = described(first, last); // not before: what is dropped goes when both let go
    };
    build(result, [&] {
        first = newNumber();
        root = group({variety(size)});
        const ::osg::UInt32 behind = newNumber();
        for (::osg::UInt32 id = first; id < behind; ++id)
            ::osg::endEditCP(::osg::FieldContainerFactory::the()->getContainer(id));
    });
    EXPECT_EQ(result.seen, result.made) << "the scene itself";
    build(result, [&] {
        const stream_capture out(std::cout);
        made = act(root.get());
    });
    build(at_end, [&] { root = made = ::osg::NullFC; });
    EXPECT_EQ(at_end.seen, "") << "both aspects let go";
    return result;
}

TEST(AspectThreads, TakeOverWhatAPassMadeAndWhatItChanged) {
    const std::pair<const char*, pass> rows[] = {
        {"merge", optTreeBy("maxtris(5),opt(3),idmapinroot(true),keeprenderfalse(true)")},
        {"threads",
         optTreeBy("maxtris(100),opt(2),calcnormals(true),vertexcolor(9),numthreads(2)")},
        {"cache", optTreeBy("cacheopt(true),onegeometry(true),removeswitch(true),removelod(true)")},
        {"atlas", optTreeBy("maxtexturesize(64),texcoords(9),maxtris(100)")},
        {"exact atlas", optTreeBy("maxtexturesize(64),texcoords(9),exactatlas(true)")},
        {"automatic", optTreeBy("")},
        {"colours",
         [](const NodePtr& root) {
             morva::osg::VertexColorIntoMaterial(coreOf(nodeNamed(root, "green")), false);
             return node_ref();
         }},
        {"pieces",
         [](const NodePtr& root) {
             return node_ref(morva::osg::optimizeCacheForTree(root, 5, true, true));
         }},
        {"clean-up", cleanUp},
        {"cores", changeCores},
        {"division",
         [](const NodePtr& root) {
             morva::osg::split_Geometries(root, 3, true, 2);
             morva::osg::check_and_split(root, 0.2F, 9, 1, 1);
             morva::osg::split_GeometriesByIndex(root, 9, true, 1);
             return node_ref();
         }},
        {"division of a root", [](const NodePtr&) {
             mesh_data mesh = quads(8);
             mesh.primitives = {{7, 24}, {1, 8}};
             const node_ref alone(meshNode(mesh));
             morva::osg::reportWhole(coreOf(alone.get()));
             morva::osg::reportChange(alone.get());
             morva::osg::split_Geometries(alone.get(), 1, true, 1);
             return alone;
         }}};
    ::osg::ChangeList::setReadWriteDefault(true);
    for (const auto& [name, act] : rows) {
        SCOPED_TRACE(name);
        const comparison both = compare(act, 6);
        EXPECT_EQ(both.seen, both.made);
        EXPECT_GT(both.entries, 1U);
    }
    // A merge into one core per material enters as much for large parts as for small ones.
    const pass merge = optTreeBy("maxtris(100000)");
    EXPECT_EQ(compare(merge, 2).entries, compare(merge, 200).entries);
    ::osg::ChangeList::setReadWriteDefault(false);
    ::osg::Thread::getCurrentChangeList()->clearAll();
}

} // namespace
