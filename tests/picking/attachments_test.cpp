// The types of the attachments, and what becomes of them call by call, in a file, without memory
// and in several aspects.

#include "pick_scenes.h"
#include "tests/support/aspect_threads.h"
#include "tests/support/shortage.h"

#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGSceneFileHandler.h>

#include <morva/core/morva_osg.h>
#include <morva/picking/morva_osg_attach_setup.h>

namespace {

using namespace picking_test;
using morva::osg::get_info, morva::osg::num_attachments;
using ::osg::MorvaAttachBIH;

const char* const no_tree = "No BIHTree.";
const char* const inactive = "BIHTree, A/N/L/D/MP/NT, bbox:  INACTIVE/";

bool isHit(const NodePtr& root) {
    return std::get<0>(pick(root, Line(Pnt3f(.25F, .5F, 10), Vec3f(0, 0, -1))));
}

/// Unit squares behind a rogue triangle.
mesh_data squares(std::size_t count) {
    mesh_data mesh = quads(count);
    mesh.primitives.insert(mesh.primitives.begin(), {GL_TRIANGLES, 3});
    mesh.positions.insert(mesh.positions.begin(), 3, Pnt3f());
    return mesh;
}

void setMesh(const NodePtr& node, const mesh_data& mesh) {
    const geometry_ref other(geometryOf(mesh));
    coreOf(node)->setTypes(other->getTypes());
    coreOf(node)->setLengths(other->getLengths());
    coreOf(node)->setPositions(other->getPositions());
}

/// The names of an attachment, of its field's types and of what these hold.
template <typename Attached, typename Payload> std::string namesOf(const char* field) {
    const ::osg::FieldContainerType& type = Attached::getClassType();
    EXPECT_EQ(::osg::FieldContainerFactory::the()->findType(type.getCName()), &type);
    const ::osg::FieldDescription* const found = type.findFieldDescription(field);
    if (found == nullptr || found->getFieldMask() != 8)
        return "no such field";
    const ::osg::RefPtr<typename Attached::PtrType> one(Attached::create());
    EXPECT_EQ(one->getBinSize(::osg::FieldBits::AllFields), one->getBinSize(6)) << "it travels";
    const auto name = [](const ::osg::TypeBase& of) { return std::string(of.getCName()) + " "; };
    return name(type) + name(found->getType()) + name(::osg::MField<Payload>::getClassType()) +
           name(found->getType().getContentType());
}

TEST(TreeAttachments, HaveTheirNamesAndStayOutOfFiles) {
    EXPECT_EQ((namesOf<MorvaAttachBIH, BIHAttachPayload>("morvabih")),
              "MorvaBIH SFBIH_Tree MFBIH_Tree BIHAttachPayload ");
    EXPECT_EQ((namesOf<::osg::MorvaAttachSetup, morva::osg::SetupAttachPayload>("morvasetup")),
              "MorvaSetup SFMorva_Setup MFMorva_Setup SetupAttachPayload ");
    const BIHAttachPayload made, copy = made;
    EXPECT_TRUE(copy == made && !(BIHAttachPayload() == made));

    const registered picking(morva::osg::register_morva_intersect);
    const node_ref root(group({meshNode(quads(1)), meshNode(quads(4))}));
    morva::osg::precalc_BIH(root.get());
    EXPECT_EQ(get_info(root->getChild(0)->getCore()), // both centres lie on any plane between
              "BIHTree, A/N/L/D/MP/NT, bbox:  ACTIVE/2/2/0/2/2 (0, 0, -0.05)/(1, 1, 0.05)");
    EXPECT_EQ(get_info(root->getChild(1)->getCore()).substr(31, 18), "ACTIVE/6/4/1/2/8 (");
    std::stringstream file;
    ASSERT_TRUE(::osg::SceneFileHandler::the().write(root.get(), file, "osb"));
    EXPECT_EQ(file.str().find("MorvaBIH"), std::string::npos);
    const node_ref again(::osg::SceneFileHandler::the().read(file, "osb"));
    ASSERT_NE(again.get(), ::osg::NullFC);
    EXPECT_EQ(get_info(geometryNodes(again.get())[0]->getCore()), no_tree);
    EXPECT_EQ(get_info(::osg::NullFC), no_tree);
    EXPECT_TRUE(isHit(again.get()));
}

/// What an attachment should be, and the cores that carry it: more than one if some are copies.
struct known_tree {
    std::size_t mesh; ///< that was read
    bool dirty, made_here;
    const void* tree = nullptr; ///< stays the same
};
struct known_core {
    std::size_t mesh; ///< that it has now
    std::shared_ptr<known_tree> carried;
};
unsigned made = 0, counted = 0; ///< attachments, and what num_attachments() should have added

void attach(known_core& core) {
    core.carried.reset(new known_tree{core.mesh, false, true});
    ++made;
    ++counted;
}
void prepare(known_core& core) {
    if (core.carried.use_count() != 1 || !core.carried->made_here)
        attach(core);
}
void update(known_core& core) {
    if (core.carried.use_count() > 1)
        attach(core);
    else if (core.carried != nullptr)
        *core.carried = {core.mesh, false, core.carried->made_here, core.carried->tree};
}
void mark(known_core& core) {
    if (core.carried != nullptr)
        core.carried->dirty = true;
}

TEST(TreeAttachments, AreAfterAnyCallsWhatTheseMakeOfThem) {
    const registered picking(morva::osg::register_morva_intersect);
    std::mt19937 rng(seedOf(45));
    mesh_data away = squares(3);
    for (Pnt3f& corner : away.positions)
        corner += Vec3f(4, 0, 0);
    const mesh_data meshes[] = {mesh_data(), squares(1), away, row(4, 1)};
    const unsigned triangles[] = {0, 2, 6, 0};
    std::set<known_core*> built;
    const struct {
        void (*call)(NodePtr);
        bool walks;
        std::function<void(known_core&)> act;
    } calls[] = {{morva::osg::update_bih_node, false, update},
                 {morva::osg::mark_bih, true, mark},
                 {morva::osg::precalc_BIH, true, prepare},
                 {morva::osg::update_bih, true, [&built](known_core& core) { // every visit counts
                      built.insert(&core).second ? attach(core) : void(++counted);
                  }}};
    for (int round = 0; round < roundsOf(60); ++round) {
        SCOPED_TRACE(round);
        const node_ref root(group({group()}));
        std::map<NodePtr, std::shared_ptr<known_core>> known;
        const auto add = [&](const ::osg::NodeCorePtr& core, std::shared_ptr<known_core> like) {
            const NodePtr node = nodeOf(core);
            (rng() % 2 == 0 ? root.get() : root->getChild(0))->addChild(node);
            known[node] = std::move(like);
        };
        add(geometryOf(meshes[1]), std::make_shared<known_core>(known_core{1, nullptr}));
        const unsigned before = num_attachments() - counted;
        for (int step = 0; step < 40; ++step) {
            SCOPED_TRACE(step);
            const node_list all = geometryNodes(root.get());
            const NodePtr node = all[rng() % all.size()];
            known_core& core = *known[node];
            const unsigned kind = rng() % 10;
            if (kind < 4) {
                const bool from_root = calls[kind].walks && rng() % 2 == 0;
                const node_ref first(::osg::Node::create());
                const unsigned made_before = made;
                built.clear();
                calls[kind].call(from_root ? root.get() : node);
                calls[kind].call(::osg::NullFC);
                for (const NodePtr& at : from_root ? all : node_list{node})
                    calls[kind].act(*known[at]);
                EXPECT_EQ(node_ref(::osg::Node::create()).get().getFieldContainerId() - 1,
                          first.get().getFieldContainerId() + made - made_before);
            } else if (kind == 4) {
                setMesh(node, meshes[core.mesh = rng() % 4]);
            } else if (kind == 5) {
                add(node->getCore(), known[node]);
            } else if (kind == 6) {
                add(::osg::NodeCorePtr::dcast(node->getCore()->shallowCopy()),
                    std::make_shared<known_core>(core));
            } else if (kind == 7) {
                node->getCore()->addAttachment(::osg::AttachmentPtr::dcast(
                    ::osg::FieldContainerFactory::the()->createFieldContainer("MorvaBIH")));
                core.carried.reset(new known_tree{0, false, false});
            } else { // what was empty is not looked at again
                prepare(core);
                if (core.carried->dirty && triangles[core.carried->mesh] != 0)
                    update(core);
                EXPECT_EQ(isHit(node), core.carried->mesh == 1);
            }
            ASSERT_EQ(num_attachments() - before, counted);
            for (const auto& [at, expected] : known) {
                known_tree* const carried = expected->carried.get();
                const std::string info = get_info(at->getCore());
                ASSERT_EQ(info == no_tree, carried == nullptr);
                if (carried == nullptr)
                    continue;
                const BIHAttachPayload& payload = payloadOn(at);
                const unsigned count = payload.geoset->count;
                carried->tree = carried->tree == nullptr ? payload.tree.get() : carried->tree;
                ASSERT_EQ(std::tuple(payload.tree.get(), payload.dirty, count),
                          std::tuple(carried->tree, carried->dirty, triangles[carried->mesh]));
                ASSERT_TRUE((info == inactive) == (count == 0) &&
                            (payload.tree->nodes == nullptr) == (count == 0));
                ASSERT_EQ(at->getCore()->getSFAttachments()->getValue().size(), 1U);
            }
        }
    }
}

TEST(TreeAttachments, SurviveAShortageAtAnyPlace) {
    const registered picking(morva::osg::register_morva_intersect);
    const mesh_data mesh = squares(200);
    const node_ref kept(meshNode(mesh));
    morva::osg::attach_bih(kept.get());
    const std::string whole = get_info(kept->getCore());
    for (const bool again : {false, true}) {
        SCOPED_TRACE(again);
        failInTurn(1, [&](const auto& starved) {
            const node_ref node(meshNode(mesh));
            if (again)
                morva::osg::precalc_BIH(node.get());
            const stream_capture error(std::cerr);
            const bool failed = starved([&] {
                (again ? morva::osg::update_bih_node : morva::osg::attach_bih)(node.get());
            });
            EXPECT_TRUE(error.text().empty() || error.text() == "Out of memory!\n");
            const std::string info = get_info(node->getCore());
            EXPECT_TRUE(info == whole || (failed && (info == inactive || info == no_tree))) << info;
            EXPECT_EQ(isHit(node.get()), info != inactive) << "a missing tree is made";
            morva::osg::update_bih(node.get());
            EXPECT_EQ(get_info(node->getCore()), whole);
            EXPECT_TRUE(isHit(node.get()));
        });
    }
}

TEST(PickingAspectThreads, ShareTreesAndSeeMarksAndRebuilds) {
    const registered picking(morva::osg::register_morva_intersect);
    ::osg::ChangeList::setReadWriteDefault(true);
    ::osg::Thread* const builder = threadOf("tree builder");
    ::osg::Thread* const viewer = threadOf("tree viewer");
    const auto shown = [&] { builder->getChangeList()->applyToCurrent(); };
    node_ref part;
    runIn(builder, 0, [&] {
        part = meshNode(quads(1));
        ::osg::endEditCP(part.get());
        ::osg::endEditCP(part->getCore());
        morva::osg::precalc_BIH(part.get());
    });
    const unsigned before = num_attachments();
    runIn(viewer, 1, [&] {
        shown();
        EXPECT_TRUE(isHit(part.get()));
        EXPECT_EQ(num_attachments(), before) << "the tree came over";
    });
    runIn(builder, 0, [&] {
        setMesh(part.get(), row(4, 1)); // in this aspect alone
        ::osg::Thread::getCurrentChangeList()->clearAll();
        morva::osg::mark_bih(part.get());
    });
    runIn(viewer, 1, [&] {
        shown();
        EXPECT_TRUE(payloadOn(part.get()).dirty);
    });
    runIn(builder, 0, [&] {
        ::osg::ChangeList& changes = *::osg::Thread::getCurrentChangeList();
        changes.clearAll();
        morva::osg::update_bih_node(part.get());
        const std::pair<::osg::UInt32, ::osg::BitVector> core(
            part->getCore().getFieldContainerId(),
            ::osg::AttachmentContainer::AttachmentsFieldMask);
        EXPECT_EQ(std::count(changes.beginChanged(), changes.endChanged(), core), 1);
    });
    runIn(viewer, 1, [&] {
        shown();
        EXPECT_FALSE(payloadOn(part.get()).dirty || isHit(part.get()));
    });
    runIn(builder, 0, [&] { part = ::osg::NullFC; });
    runIn(viewer, 1, shown);
    ::osg::ChangeList::setReadWriteDefault(false);
    ::osg::Thread::getCurrentChangeList()->clearAll();
}

} // namespace
