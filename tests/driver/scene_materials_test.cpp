// One material for a whole scene.

#include "tests/support/test.h"

#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scene_placement.h>

namespace {

::osg::MaterialPtr ownMaterial(const ::osg::NodePtr& node) { return coreOf(node)->getMaterial(); }

TEST(MostUsedMaterial, CountsPrimitivesNotNodes) {
    const ::osg::RefPtr<::osg::SimpleMaterialPtr> red(simple({1, 0, 0})), blue(simple({0, 0, 1}));
    const node_ref root(group({meshNode(quads(1), red.get()), meshNode(quads(1), red.get()),
                               meshNode(quads(5), blue.get()),
                               hidden(meshNode(quads(9), red.get())), meshNode(quads(2))}));
    EXPECT_EQ(morva::osg::getMostUsedMaterialInScene(root.get()), blue.get());
    morva::osg::reduceSceneMaterialsToOne(root.get());
    EXPECT_EQ(ownMaterial(root->getChild(0)), blue.get());
    EXPECT_EQ(ownMaterial(root->getChild(4)), blue.get()) << "also where there was none";
    EXPECT_EQ(ownMaterial(root->getChild(3)), red.get()) << "hidden nodes are left alone";
    for (const node_ref& nothing : {node_ref(), node_ref(group({group()}))}) {
        EXPECT_EQ(morva::osg::getMostUsedMaterialInScene(nothing.get()), ::osg::NullFC);
        morva::osg::reduceSceneMaterialsToOne(nothing.get());
    }
}

TEST(MostUsedMaterial, OfEqualsTheFirstThatIsMetButNoneBeforeAll) {
    const ::osg::RefPtr<::osg::SimpleMaterialPtr> red(simple({1, 0, 0})), blue(simple({0, 0, 1}));
    const node_ref root(group({meshNode(quads(2), blue.get()), meshNode(quads(2), red.get())}));
    EXPECT_EQ(morva::osg::getMostUsedMaterialInScene(root.get()), blue.get());
    root->addChild(meshNode(quads(2)));
    EXPECT_EQ(morva::osg::getMostUsedMaterialInScene(root.get()), ::osg::NullFC);
}

TEST(ChangeMaterial, GoesThroughTheOutermostMaterialGroup) {
    const ::osg::RefPtr<::osg::SimpleMaterialPtr> red(simple({1, 0, 0})), blue(simple({0, 0, 1}));
    const node_ref root(sceneOf("$red($red(m))", {{"red", red.get()}}));
    const ::osg::NodePtr inner = root->getChild(0), geometry = inner->getChild(0);
    morva::osg::changeMaterialForNode(geometry, blue.get());
    EXPECT_EQ(::osg::MaterialGroupPtr::dcast(root->getCore())->getMaterial(), blue.get());
    EXPECT_EQ(::osg::MaterialGroupPtr::dcast(inner->getCore())->getMaterial(), red.get());
    EXPECT_EQ(ownMaterial(geometry), ::osg::NullFC);
    EXPECT_EQ(morva::osg::getMaterial(geometry), blue.get());
    EXPECT_EQ(blue.get().getRefCount(), 2U);
    morva::osg::changeMaterialForNode(geometry, blue.get());
    EXPECT_EQ(blue.get().getRefCount(), 2U) << "the same again changes nothing";
}

} // namespace
