#include "collide_names.h"

#include <algorithm>

#include "host_error.h"
#include "text.h"

namespace morva::host {

namespace {

/// Candidates that an error lists.
constexpr std::size_t most_listed = 100;

bool isCalled(const named_part& node, const std::string& name) {
    return !node.original_name.empty() &&
           (node.original_name == name || safeName(node.original_name) == name);
}

/// Whether a node stands alone below another one of these.
bool repeatsParent(const named_part& node, const std::vector<const named_part*>& all) {
    const ::osg::NodePtr parent = node.node->getParent();
    return parent != ::osg::NullFC && parent->getNChildren() == 1 &&
           std::any_of(all.begin(), all.end(),
                       [&](const named_part* other) { return other->node == parent; });
}

std::string listOf(const std::vector<const named_part*>& candidates) {
    std::string text;
    for (std::size_t i = 0; i < std::min(candidates.size(), most_listed); ++i)
        text += "\n  " + candidates[i]->path;
    if (candidates.size() > most_listed)
        text += "\n  and " + withCommas(candidates.size() - most_listed) + " more";
    return text;
}

} // namespace

node_names::node_names(const ::osg::NodePtr& root) : nodes_(namedNodes(root)) {
    for (std::size_t i = 0; i < nodes_.size(); ++i)
        by_node_.emplace(nodes_[i].node_id, i);
}

::osg::NodePtr node_names::find(const std::string& name) const {
    std::vector<const named_part*> called;
    for (const named_part& node : nodes_) {
        if (node.path == name)
            return node.node;
        if (isCalled(node, name))
            called.push_back(&node);
    }
    std::vector<const named_part*> candidates;
    std::copy_if(called.begin(), called.end(), std::back_inserter(candidates),
                 [&](const named_part* node) { return !repeatsParent(*node, called); });
    if (candidates.size() == 1)
        return candidates.front()->node;
    const std::string shown = "'" + validUtf8(name) + "'";
    if (candidates.empty())
        throw host_error("nothing is called " + shown + " and no path is " + shown, exit_usage);
    throw host_error(shown + " is the name of " + withCommas(candidates.size()) +
                         " nodes; say which one by its path:" + listOf(candidates),
                     exit_usage);
}

const named_part& node_names::of(const ::osg::NodePtr& node) const {
    return nodes_[by_node_.at(node.getFieldContainerId())];
}

} // namespace morva::host
