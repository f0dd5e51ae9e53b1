// The types of the attachments, and what becomes of them call by call, in a file, without memory
// and in several aspects.

#include "pick_scenes.h"
#include "tests/support/aspect_threads.h"
#include "tests/support/shortage.h"

#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGSceneFileHandler.h>

#include <morva/core/morva_osg.h>
#include <morva/picking/morva_osg_attach_setup.h>
#include <morva/picking/morva_osg_core_trees.h>

namespace {

using namespace picking_test;
using morva::osg::get_info, morva::osg::num_attachments;
using ::osg::MorvaAttachBIH;

const char* const no_tree = "No BIHTree.";
const char* const inactive = "BIHTree, A/N/L/D/MP/NT, bbox:  INACTIVE/";

BIHAttachPayload& payloadOn(const NodePtr& node) {
    return morva::osg::attachmentOf(node->getCore())->getFieldPtr()->getValue();
}

const Line onto(Pnt3f(.25F, .5F, 10), Vec3f(0, 0, -1));

bool isHit(const NodePtr& root) { return std::get<0>(pick(root, onto)); }

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

/// The names of an attachment, of its field, of that one's types and of what these hold.
template <typename Attached> std::string namesOf() {
    const ::osg::FieldContainerType& type = Attached::getClassType();
    const ::osg::RefPtr<typename Attached::PtrType> one(Attached::create());
    EXPECT_EQ(one->getBinSize(::osg::FieldBits::AllFields), one->getBinSize(6)) << "it travels";
    ::osg::FieldDescription& field = *type.getFieldDescription(3);
    const auto& held = field.getType();
    return type.getName().str() + std::string(" ") + field.getCName() + " " + held.getCName() +
           " " + held.getContentType().getCName();
}

TEST(TreeAttachments, HaveTheirNamesAndStayOutOfFiles) {
    EXPECT_EQ(namesOf<MorvaAttachBIH>(), "MorvaBIH morvabih SFBIH_Tree BIHAttachPayload");
    EXPECT_EQ(namesOf<::osg::MorvaAttachSetup>(),
              "MorvaSetup morvasetup SFMorva_Setup SetupAttachPayload");
    const BIHAttachPayload made, other;
    EXPECT_TRUE(made == BIHAttachPayload(made) && !(made == other));
    const registered picking(morva::osg::register_morva_intersect);
    const node_ref root(meshNode(quads(1)));
    morva::osg::precalc_BIH(root.get());
    EXPECT_EQ(get_info(root->getCore()), // both centres lie on any plane between
              "BIHTree, A/N/L/D/MP/NT, bbox:  ACTIVE/2/2/0/2/2 (0, 0, -0.05)/(1, 1, 0.05)");
    std::stringstream file;
    ASSERT_TRUE(::osg::SceneFileHandler::the().write(root.get(), file, "osb"));
    EXPECT_EQ(file.str().find("MorvaBIH"), std::string::npos);
    const node_ref again(::osg::SceneFileHandler::the().read(file, "osb"));
    EXPECT_EQ(get_info(again->getCore()), no_tree);
    EXPECT_EQ(get_info(::osg::NullFC), no_tree);
    EXPECT_TRUE(isHit(again.get()));
}

TEST(TreeAttachments, AreAfterEachCallWhatItMakesOfThem) {
    const registered picking(morva::osg::register_morva_intersect);
    const NodePtr part = meshNode(squares(1)), copy = ::osg::Node::create();
    const node_ref root(group({part, group({nodeOf(part->getCore()), copy})}));
    /// Attachments counted and containers made by a call, and then the two trees' triangles.
    const auto told = [&](void (*call)(NodePtr), const NodePtr& node) {
        const auto next = [] {
            return node_ref(::osg::Node::create()).get().getFieldContainerId();
        };
        const unsigned id = next() + 1, count = num_attachments();
        call(node);
        call(::osg::NullFC);
        std::string text =
            std::to_string(num_attachments() - count) + " of " + std::to_string(next() - id) + ":";
        for (const NodePtr& at : {part, copy})
            text += (payloadOn(at).dirty ? " dirty " : " ") +
                    std::to_string(payloadOn(at).geoset->count);
        return text;
    };
    using namespace morva::osg;
    update_bih_node(part);
    mark_bih(root.get());
    EXPECT_EQ(get_info(part->getCore()), no_tree);
    precalc_BIH(root.get());
    copy->setCore(::osg::NodeCorePtr::dcast(part->getCore()->shallowCopy()));
    EXPECT_EQ(told(mark_bih, copy), "0 of 0: dirty 2 dirty 2") << "one for both";
    EXPECT_EQ(told(update_bih_node, copy), "1 of 1: dirty 2 2") << "the other one keeps its tree";
    setMesh(part, row(4, 1));
    EXPECT_EQ(told(update_bih_node, part), "0 of 0: 0 2");
    setMesh(part, squares(3));
    EXPECT_EQ(told(mark_bih, part), "0 of 0: dirty 0 2");
    EXPECT_FALSE(isHit(part)) << "what was empty is not looked at again";
    EXPECT_EQ(told(update_bih, root.get()), "3 of 2: 6 2") << "every visit counts";
    part->getCore()->addAttachment(::osg::AttachmentPtr::dcast(
        ::osg::FieldContainerFactory::the()->createFieldContainer("MorvaBIH")));
    EXPECT_EQ(told(update_bih_node, part), "0 of 0: 6 2");
    EXPECT_EQ(told(precalc_BIH, part), "1 of 1: 6 2") << "one that was made elsewhere is replaced";
    setMesh(part, row(4, 1));
    mark_bih(part);
    EXPECT_FALSE(isHit(part)) << "marked ones are made anew when they are asked";
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
