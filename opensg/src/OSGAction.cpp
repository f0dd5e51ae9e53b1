#include "OpenSG/OSGAction.h"

#include "OSGActionDefaults.h"
#include "OpenSG/OSGLog.h"

#include <utility>

OSG_BEGIN_NAMESPACE

namespace {

action_defaults& actionDefaults() {
    static action_defaults& table = *new action_defaults;
    return table;
}

} // namespace

Action::Action() : Action(actionDefaults().enterCopy(), actionDefaults().leaveCopy()) {}
Action::Action(Functions enter, Functions leave)
    : _enter(std::move(enter)), _leave(std::move(leave)) {}
Action::~Action() = default;

void Action::registerEnterDefault(const FieldContainerType& type, const Functor& function) {
    actionDefaults().setEnter(type, function);
}

void Action::registerLeaveDefault(const FieldContainerType& type, const Functor& function) {
    actionDefaults().setLeave(type, function);
}

void Action::registerEnterFunction(const FieldContainerType& type, const Functor& function) {
    _enter[type.getId()] = function;
}

void Action::registerLeaveFunction(const FieldContainerType& type, const Functor& function) {
    _leave[type.getId()] = function;
}

Action::ResultE Action::apply(std::vector<NodePtr>::iterator begin,
                              std::vector<NodePtr>::iterator end) {
    ResultE result = Continue;
    start();
    for (; begin != end && result != Quit; ++begin)
        result = walk(*begin);
    stop();
    return result;
}

Action::ResultE Action::apply(NodePtr root) {
    std::vector<NodePtr> roots{root};
    return apply(roots.begin(), roots.end());
}

Action::ResultE Action::call(const Functions& functions, const NodePtr& node) {
    _actNode = node;
    _chosen.clear();
    _useChosen = false;
    const auto found = functions.find(node->getCore()->getTypeId());
    if (found == functions.end())
        return Continue;
    CNodePtr argument(node);
    return found->second.call(argument, this);
}

/// On Continue the node's children are next.
Action::ResultE Action::enter(const NodePtr& node, std::vector<visit>& open) {
    if (node == NullFC || (node->getTravMask() & _travMask) == 0)
        return Skip;
    if (node->getCore() == NullFC) {
        SWARNING << "Action: a node without a core ends the walk" << endLog;
        return Quit;
    }
    const ResultE result = call(_enter, node);
    if (result == Continue)
        open.push_back({node, std::move(_chosen), _useChosen, 0});
    return result;
}

Action::ResultE Action::walk(const NodePtr& root) {
    std::vector<visit> open; // from the root to the node in hand
    bool quit = enter(root, open) == Quit;
    while (!open.empty()) {
        visit& now = open.back();
        const bool useChosen = now.useChosen || !now.chosen.empty();
        const std::size_t count = useChosen ? now.chosen.size() : now.node->getNChildren();
        if (!quit && now.next < count) {
            const UInt32 next = now.next++;
            const NodePtr child = useChosen ? now.chosen[next] : now.node->getChild(next);
            quit = enter(child, open) == Quit;
            continue;
        }
        const NodePtr left = now.node;
        open.pop_back();
        quit = left->getCore() == NullFC || call(_leave, left) == Quit || quit;
    }
    _actNode = NullFC;
    return quit ? Quit : Continue;
}

Action::ResultE traverse(NodePtr root, const TraverseEnterFunctor& enter) {
    return traverse(root, enter, TraverseLeaveFunctor());
}

Action::ResultE traverse(NodePtr root, const TraverseEnterFunctor& enter,
                         const TraverseLeaveFunctor& leave) {
    std::vector<std::pair<NodePtr, UInt32>> open; // and which child is next
    Action::ResultE result = Action::Continue;
    const auto visit = [&](NodePtr node) {
        result = enter.call(node);
        const UInt32 passed = result == Action::Continue ? 0u : node->getNChildren();
        open.emplace_back(node, passed);
    };
    if (root != NullFC)
        visit(root);
    while (!open.empty()) {
        NodePtr node = open.back().first;
        if (result != Action::Quit && open.back().second < node->getNChildren()) {
            visit(node->getChild(open.back().second++));
            continue;
        }
        open.pop_back();
        const Action::ResultE below = result == Action::Quit ? Action::Quit : Action::Continue;
        const Action::ResultE left = leave.call(node, below);
        result = below == Action::Quit ? Action::Quit : left;
    }
    return result == Action::Quit ? Action::Quit : Action::Continue;
}

OSG_END_NAMESPACE
