// What a collision does when memory runs out: each allocation fails, one a run.

#include "tests/support/test.h"

#include <morva/collision/morva_osg_collision.h>

#include "naive_collision.h"
#include "solids.h"
#include "tests/support/shortage.h"

namespace {

using namespace morva_test;

TEST(CollisionMemory, AnswersTheLiteralWayWithoutRoomForCompanions) {
    std::mt19937 rng(3);
    const ::osg::Matrix inside = placed(rng, ::osg::Vec3f(), ::osg::Vec3f(0.97F, 0.97F, 0.97F));
    unsigned int thrown = 0, answered = 0;
    failInTurn(1, [&](const auto& starved) {
        const node_ref a(meshNode(ballMesh(10)));
        const node_ref b(transformed(inside, {meshNode(ballMesh(10))}));
        const auto fitted = [](const ::osg::NodePtr& node) {
            return naive_collision::payloadOf(node)->tree->companions.find(
                       morva::companion_slot::fitted_boxes) != nullptr;
        };
        const naive_result expected = naive_collision::collide(a.get(), b->getChild(0));
        morva::osg::CollisionResults results;
        bool ended = false;
        const bool failed = starved([&] {
            ended = morva::osg::do_collide(a.get(), b->getChild(0), results) == expected.collided;
        });
        EXPECT_TRUE(failed || fitted(a.get()));
        EXPECT_TRUE(failed || ended);
        thrown += ended ? 0 : 1;
        answered += failed && ended && !(fitted(a.get()) && fitted(b->getChild(0))) ? 1 : 0;
        EXPECT_EQ(morva::osg::do_collide(a.get(), b->getChild(0), results), expected.collided);
    });
    EXPECT_GT(thrown, 0U);
    EXPECT_GT(answered, 1U);
}

} // namespace
