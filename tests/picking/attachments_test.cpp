// The types of the attachments, the walkers, and what becomes of a tree while its core changes.

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
using ::osg::AttachmentContainer;
using ::osg::MorvaAttachBIH;

const char* const no_tree = "No BIHTree.";
const char* const inactive = "BIHTree, A/N/L/D/MP/NT, bbox:  INACTIVE/";
/// Of quads(1): no plane divides two triangles with their centres on it.
const char* const active =
    "BIHTree, A/N/L/D/MP/NT, bbox:  ACTIVE/2/2/0/2/2 (0, 0, -0.05)/(1, 1, 0.05)";
const Line onto(Pnt3f(.25F, .5F, 10), Vec3f(0, 0, -1));

bool isHit(const NodePtr& root) { return std::get<0>(pick(root, onto)); }

template <typename Attached, typename Payload>
void checkType(const char* data, const char* single, const char* multi, const char* type,
               const char* field) {
    SCOPED_TRACE(type);
    const ::osg::FieldContainerType* const found =
        ::osg::FieldContainerFactory::the()->findType(type);
    ASSERT_EQ(found, &Attached::getClassType());
    const ::osg::FieldDescription* const desc = found->findFieldDescription(field);
    ASSERT_TRUE(desc != nullptr && desc->getFieldMask() == 8);
    EXPECT_STREQ(desc->getType().getCName(), single);
    EXPECT_STREQ(::osg::MField<Payload>::getClassType().getCName(), multi);
    EXPECT_STREQ(desc->getType().getContentType().getCName(), data);
    const ::osg::RefPtr<typename Attached::PtrType> one(Attached::create());
    std::string list;
    ::osg::MField<Payload> many;
    many.pushValueByStr("anything");
    many.pushValueByStr("");
    EXPECT_EQ(many.getValueByStr(list), "\"\", \"\"");
    // The fields of the base class alone travel.
    EXPECT_EQ(one->getBinSize(8), 0U);
    EXPECT_EQ(one->getBinSize(::osg::FieldBits::AllFields), one->getBinSize(6));
}

TEST(TreeAttachments, HaveTheirNamesAndTheirFieldsFunctions) {
    checkType<MorvaAttachBIH, BIHAttachPayload>("BIHAttachPayload", "SFBIH_Tree", "MFBIH_Tree",
                                                "MorvaBIH", "morvabih");
    checkType<::osg::MorvaAttachSetup, morva::osg::SetupAttachPayload>(
        "SetupAttachPayload", "SFMorva_Setup", "MFMorva_Setup", "MorvaSetup", "morvasetup");
    const BIHAttachPayload made, copy = made;
    EXPECT_TRUE(made.tree != nullptr && made.geoset->count == 0 && !made.dirty);
    EXPECT_TRUE(copy == made && !(BIHAttachPayload() == made));
}

TEST(TreeAttachments, ComeByEachWalkerAsItSays) {
    const NodePtr part = meshNode(quads(1)), below = meshNode(quads(4));
    const node_ref root(group({part, group({nodeOf(part->getCore())}), meshNode(row(6, 1)),
                               meshNode(mesh_data()), ::osg::Node::create()}));
    root->getChild(4)->addChild(below);
    const auto counted = [&](void (*function)(NodePtr)) {
        const unsigned before = num_attachments();
        function(root.get());
        function(::osg::NullFC);
        return num_attachments() - before;
    };
    EXPECT_EQ(get_info(part->getCore()), no_tree);
    EXPECT_EQ(get_info(::osg::NullFC), no_tree);
    EXPECT_EQ(counted(morva::osg::mark_bih) + counted(morva::osg::update_bih_node), 0U);
    EXPECT_EQ(counted(morva::osg::precalc_BIH), 4U) << "a core of two nodes once";
    EXPECT_EQ(counted(morva::osg::precalc_BIH), 0U);
    EXPECT_EQ(get_info(part->getCore()), active);
    EXPECT_EQ(get_info(below->getCore()).substr(31, 18), "ACTIVE/6/4/1/2/8 (");
    EXPECT_EQ(get_info(root->getChild(2)->getCore()), inactive);
    EXPECT_EQ(get_info(root->getCore()), no_tree);
    const ::osg::UInt32 first = attachmentOn(part).getFieldContainerId();
    EXPECT_EQ(counted(morva::osg::update_bih), 5U) << "every visit";
    const node_ref before(::osg::Node::create());
    EXPECT_EQ(counted(morva::osg::update_bih), 5U);
    const node_ref behind(::osg::Node::create());
    EXPECT_EQ(behind.get().getFieldContainerId() - before.get().getFieldContainerId(), 5U)
        << "but each core is built once";
    EXPECT_NE(attachmentOn(part).getFieldContainerId(), first);
    EXPECT_EQ(part->getCore()->getSFAttachments()->getValue().size(), 1U);
    const auto tree = payloadOn(below).tree;
    morva::osg::mark_bih(root.get());
    EXPECT_TRUE(payloadOn(below).dirty && payloadOn(part).dirty);
    morva::osg::update_bih_node(below);
    EXPECT_TRUE(!payloadOn(below).dirty && payloadOn(part).dirty);
    EXPECT_EQ(payloadOn(below).tree, tree) << "in place";
}

void setMesh(const NodePtr& node, const mesh_data& mesh) {
    const geometry_ref other(geometryOf(mesh));
    coreOf(node)->setTypes(other->getTypes());
    coreOf(node)->setLengths(other->getLengths());
    coreOf(node)->setPositions(other->getPositions());
    coreOf(node)->setIndices(::osg::NullFC);
}

TEST(TreeAttachments, FollowACoreThatIsEmptiedAndFilledAgain) {
    const registered picking(morva::osg::register_morva_intersect);
    const node_ref root(meshNode(mesh_data()));
    mesh_data away = quads(3);
    for (Pnt3f& corner : away.positions)
        corner += Vec3f(4, 0, 0);
    EXPECT_FALSE(isHit(root.get()));
    for (const bool whole : {false, true}) {
        setMesh(root.get(), quads(1));
        morva::osg::mark_bih(root.get());
        EXPECT_FALSE(isHit(root.get())) << "not looked at again by a pick";
        (whole ? morva::osg::update_bih : morva::osg::update_bih_node)(root.get());
        EXPECT_EQ(get_info(root->getCore()), active);
        setMesh(root.get(), away);
        EXPECT_TRUE(isHit(root.get())) << "nobody said a word";
        morva::osg::mark_bih(root.get());
        EXPECT_FALSE(isHit(root.get()));
        EXPECT_TRUE(payloadOn(root.get()).geoset->count == 6 && !payloadOn(root.get()).dirty);
        setMesh(root.get(), row(4, 1));
        morva::osg::mark_bih(root.get());
        morva::osg::ray_hit hit;
        const Line through(Pnt3f(0, 0, 3), Vec3f(0, 0, -1)); // where an empty box is
        EXPECT_FALSE(whole && morva::osg::first_hit(root.get(), through, true, hit));
        EXPECT_FALSE(isHit(root.get()));
        EXPECT_EQ(get_info(root->getCore()), inactive);
        EXPECT_EQ(payloadOn(root.get()).geoset->count, 0U);
        EXPECT_EQ(payloadOn(root.get()).tree->nodes, nullptr);
    }
}

TEST(TreeAttachments, ThatAreNotTheCoresOwnAreReplaced) {
    const registered picking(morva::osg::register_morva_intersect);
    const node_ref made(meshNode(quads(1))), node(meshNode(quads(1)));
    const auto copied = [&node] {
        return node_ref(nodeOf(::osg::NodeCorePtr::dcast(node->getCore()->shallowCopy())));
    };
    made->getCore()->addAttachment(::osg::AttachmentPtr::dcast(
        ::osg::FieldContainerFactory::the()->createFieldContainer("MorvaBIH")));
    EXPECT_EQ(get_info(made->getCore()), inactive);
    const unsigned before = num_attachments();
    EXPECT_TRUE(isHit(made.get()));
    morva::osg::precalc_BIH(node.get());
    const node_ref copy = copied(), other = copied(); // the other one is picked as it is
    EXPECT_EQ(attachmentOn(copy.get()), attachmentOn(node.get()));
    setMesh(copy.get(), row(4, 1));
    morva::osg::update_bih_node(copy.get());
    EXPECT_TRUE(isHit(node.get()) && !isHit(copy.get()) && isHit(other.get()));
    EXPECT_NE(attachmentOn(other.get()), attachmentOn(node.get()));
    EXPECT_EQ(get_info(node->getCore()), active);
    EXPECT_EQ(num_attachments() - before, 4U); // of two that shared, one made its own

    // A file has none of it, and the scene read from it gets its own.
    std::stringstream file;
    ASSERT_TRUE(::osg::SceneFileHandler::the().write(node.get(), file, "osb"));
    EXPECT_EQ(file.str().find("MorvaBIH"), std::string::npos);
    const node_ref again(::osg::SceneFileHandler::the().read(file, "osb"));
    ASSERT_NE(again.get(), ::osg::NullFC);
    EXPECT_EQ(get_info(again->getCore()), no_tree);
    EXPECT_TRUE(isHit(again.get()));
}

TEST(ExtractNode, KeepsWhatIsNoRogue) {
    mesh_data mesh = quads(1); // 2 triangles, then one of each kind that is left out, and one more
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const Pnt3f& p : {Pnt3f(5, 5, 5),
                           {5, 5, 5},
                           {6, 7, 8},
                           {0, 0, nan},
                           {1, 0, 0},
                           {1, 1, 0},
                           {2, 0, 0},
                           {3, 0, 0},
                           {3, 1, 0}})
        mesh.positions.push_back(p);
    for (unsigned i = 0; i < 13; ++i)
        mesh.indices.push_back(i);
    mesh.indices.insert(mesh.indices.end(), {1, 2, 77}); // leads nowhere
    mesh.primitives.emplace_back(GL_TRIANGLES, 12);
    const node_ref node(meshNode(mesh)), other(group());
    BIHAttachPayload payload;
    morva::osg::triangle_list& list = *payload.geoset;
    EXPECT_EQ(morva::osg::extract_node(node.get(), list), 3);
    ASSERT_EQ(list.count, 3U);
    EXPECT_EQ(list.triangles[2].c[1], 1.F);
    const auto* const array = list.triangles;
    setMesh(node.get(), triangles({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}));
    for (const NodePtr& next :
         {node.get(), other.get(), NodePtr()}) { // leave it alone but the first
        EXPECT_EQ(morva::osg::extract_node(next, list), 0);
        EXPECT_TRUE(list.count == 1 && list.triangles == array) << "the array is used again";
    }
}

TEST(TreeAttachments, SurviveAShortageAtAnyPlace) {
    const registered picking(morva::osg::register_morva_intersect);
    std::mt19937 rng(seedOf(7));
    mesh_data mesh = quads(1);
    const mesh_data more = soup(rng, 400);
    mesh.positions.insert(mesh.positions.end(), more.positions.begin(), more.positions.end());
    mesh.primitives.insert(mesh.primitives.end(), more.primitives.begin(), more.primitives.end());
    const node_ref whole(meshNode(mesh));
    morva::osg::attach_bih(whole.get());
    const morva::osg::triangle_list& kept = *payloadOn(whole.get()).geoset;
    for (const bool again : {false, true}) {
        SCOPED_TRACE(again);
        failInTurn(1, [&](const auto& starved) {
            const node_ref root(group({meshNode(mesh), meshNode(mesh)}));
            if (again)
                morva::osg::precalc_BIH(root.get());
            const stream_capture error(std::cerr);
            const bool failed = starved([&] {
                for (const NodePtr& part : geometryNodes(root.get()))
                    (again ? morva::osg::update_bih_node : morva::osg::attach_bih)(part);
            });
            EXPECT_TRUE(error.text().empty() || error.text() == "Out of memory!\n");
            for (const NodePtr& part : geometryNodes(root.get())) {
                const std::string info = get_info(part->getCore());
                const bool is_active = info.find(" ACTIVE") != std::string::npos;
                EXPECT_TRUE(failed || is_active) << info;
                if (is_active) {
                    const morva::osg::triangle_list& list = *payloadOn(part).geoset;
                    ASSERT_EQ(list.count, kept.count);
                    EXPECT_EQ(std::memcmp(list.triangles, kept.triangles, 36 * kept.count), 0);
                }
                EXPECT_EQ(isHit(part), info != inactive) << "a missing tree is made";
                morva::osg::update_bih(part);
                EXPECT_TRUE(isHit(part));
            }
        });
    }
}

/// What the calling thread's list has of a node: 1 for the tree, 2 for the core that carries it.
int recordedOf(const NodePtr& node) {
    ::osg::ChangeList& list = *::osg::Thread::getCurrentChangeList();
    const auto has = [&list](const ::osg::FieldContainerPtr& container, ::osg::BitVector mask) {
        return std::count(list.beginChanged(), list.endChanged(),
                          std::pair(container.getFieldContainerId(), mask)) != 0;
    };
    return (has(attachmentOn(node), MorvaAttachBIH::SimpleFieldMask) ? 1 : 0) +
           (has(node->getCore(), AttachmentContainer::AttachmentsFieldMask) ? 2 : 0);
}

TEST(PickingAspectThreads, ShareTreesAndSeeLaterRebuilds) {
    const registered picking(morva::osg::register_morva_intersect);
    ::osg::ChangeList::setReadWriteDefault(true);
    ::osg::Thread* const builder = threadOf("tree builder");
    ::osg::Thread* const viewer = threadOf("tree viewer");
    const auto shown = [&] { builder->getChangeList()->applyToCurrent(); };
    node_ref part;
    runIn(builder, 0, [&] {
        part = meshNode(quads(1));
        const ::osg::GeometryPtr core = coreOf(part.get());
        for (const ::osg::FieldContainerPtr& made : std::initializer_list<::osg::FieldContainerPtr>{
                 part.get(), core, core->getTypes(), core->getLengths(), core->getPositions()})
            ::osg::endEditCP(made);
        morva::osg::precalc_BIH(part.get());
        EXPECT_EQ(recordedOf(part.get()), 3);
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
        EXPECT_EQ(recordedOf(part.get()), 1);
        morva::osg::update_bih_node(part.get());
        EXPECT_EQ(recordedOf(part.get()), 3);
    });
    runIn(viewer, 1, [&] {
        EXPECT_FALSE(isHit(part.get())) << "the tree is one for all";
        shown();
        EXPECT_EQ(get_info(part->getCore()), inactive);
    });
    runIn(builder, 0, [&] { part = ::osg::NullFC; });
    runIn(viewer, 1, shown);
    ::osg::ChangeList::setReadWriteDefault(false);
    ::osg::Thread::getCurrentChangeList()->clearAll();
}

} // namespace
