#include "collide_command.h"

#include <chrono>
#include <optional>
#include <vector>

#include <morva/collision/morva_osg_collision.h>
#include <morva/collision/morva_osg_containment.h>
#include <morva/picking/morva_osg_attach_bih.h>

#include "collide_answer.h"
#include "collide_names.h"
#include "collide_scene.h"
#include "console.h"
#include "host_error.h"
#include "memory_watch.h"
#include "model.h"
#include "scene_walk.h"
#include "statistics.h"

namespace morva::host {

namespace {

/// The two nodes of a question, neither below the other.
struct node_pair {
    ::osg::NodeRefPtr a, b;
    ::osg::NodeRefPtr root_of_a; ///< if A was taken out
    std::optional<posed_node> posed;
};

std::string quoted(const std::string& path) { return "'" + path + "'"; }

node_pair pairOf(const collide_options& asked, const ::osg::NodePtr& root,
                 const node_names& names) {
    node_pair pair;
    pair.a = ::osg::NodeRefPtr(names.find(asked.a));
    if (asked.b == "rest") {
        if (pair.a.get() == root)
            throw host_error(quoted(names.of(root).path) + " is the whole scene: there is no rest",
                             exit_usage);
        pair.root_of_a = takenOut(pair.a.get());
        pair.b = groupAbove(root);
    } else {
        pair.b = ::osg::NodeRefPtr(names.find(asked.b));
        const std::string a = quoted(names.of(pair.a.get()).path),
                          b = quoted(names.of(pair.b.get()).path);
        if (pair.a.get() == pair.b.get())
            throw host_error("A and B are both " + a, exit_usage);
        if (overlaps(pair.a.get(), pair.b.get()))
            throw host_error("A and B overlap: one of " + a + " and " + b + " holds the other",
                             exit_usage);
    }
    if (asked.poses)
        pair.posed.emplace(pair.b.get());
    return pair;
}

collide_side sideOf(const std::string& path, const ::osg::NodePtr& node, const node_names& names) {
    collide_side side{path, {}};
    const std::vector<::osg::NodePtr> parts = geometryNodes(node);
    if (parts.empty())
        tellNotes({quoted(path) + " holds no geometry"}, false);
    else if (morva::osg::is_closed(node)) // by several parts together, it may be
        return side;
    for (const ::osg::NodePtr& part : parts) {
        if (!morva::osg::is_closed(part))
            side.open.push_back(names.of(part).path);
    }
    return side;
}

std::vector<contact> contactsOf(const node_pair& pair, const collide_options& asked,
                                const node_names& names) {
    const morva::osg::CollisionParam plain;
    std::vector<morva::osg::CollisionResults> found;
    if (asked.all) {
        found = morva::osg::collisions(pair.a.get(), pair.b.get(), plain);
    } else {
        morva::osg::CollisionResults first;
        if (morva::osg::collision(pair.a.get(), pair.b.get(), plain, first))
            found.push_back(first);
    }
    std::vector<contact> contacts;
    for (const morva::osg::CollisionResults& touch : found)
        contacts.push_back({&names.of(touch.nodeA), &names.of(touch.nodeB), touch.point});
    return contacts;
}

collide_answer answerOf(const node_pair& pair, const collide_options& asked,
                        const node_names& names) {
    collide_answer answer;
    const auto start = std::chrono::steady_clock::now();
    answer.contacts = contactsOf(pair, asked, names);
    answer.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (answer.contacts.empty()) {
        answer.a_inside = morva::osg::contains(pair.b.get(), pair.a.get());
        answer.b_inside = morva::osg::contains(pair.a.get(), pair.b.get());
    }
    memory_watch::check("colliding");
    return answer;
}

void tellAnswer(const collide_question& question, const collide_answer& answer, bool json) {
    const auto replace = nlohmann::json::error_handler_t::replace;
    tell(json ? jsonOf(question, answer).dump(-1, ' ', false, replace) + "\n" : textOf(answer));
}

} // namespace

void collide(const options& chosen) {
    const collide_options& asked = chosen.collide;
    const model source = readModel(chosen.input);
    tellNotes(source.notes, false);
    refuseFaults(measureScene(source.root.get(), measure::counts), chosen.input);
    const node_names names(source.root.get());
    node_pair pair = pairOf(asked, source.root.get(), names);
    morva::osg::precalc_BIH(pair.a.get()); // so that no answer's time holds it
    morva::osg::precalc_BIH(pair.b.get());
    const collide_question question = {
        sideOf(names.of(pair.a.get()).path, pair.a.get(), names),
        sideOf(asked.b == "rest" ? asked.b : names.of(pair.b.get()).path, pair.b.get(), names)};

    if (!asked.poses)
        tellAnswer(question, answerOf(pair, asked, names), asked.json);
    for (std::size_t i = 0; asked.poses && i < asked.poses->size(); ++i) {
        const collide_pose& pose = (*asked.poses)[i];
        pair.posed->moveTo(pose.to_world);
        collide_answer answer = answerOf(pair, asked, names);
        answer.pose = i + 1;
        answer.line = pose.line;
        tellAnswer(question, answer, asked.json);
    }
    if (!asked.json)
        tell(openText(question));
}

} // namespace morva::host
