#pragma once

// An action walks a scene, node before children, and calls functions chosen by the type of a
// node's core.
//
//     IntersectAction* action = IntersectAction::create(Line(eye, direction));
//     action->apply(root);
//     if (action->didHit()) ...
//     delete action;
//
// For each node whose mask shares a bit with the action's: the enter function, then, if that says
// Continue, the children (or those that it asked for) and the leave function. Skip passes over
// children and leave function; Quit ends the walk, but the leave functions of the nodes above are
// still called. Functions are found by the exact type of the core; without one a node is gone
// through. A node without a core ends the walk with a warning. Functions must not change the tree.
//
// Threads: an action belongs to one thread; the tables of defaults may be changed by any.

#include "OSGTypedFunctors.h"

#include <unordered_map>
#include <vector>

OSG_BEGIN_NAMESPACE

class OSG_BASE_DLLMAPPING Action {
  public:
    enum ResultE { Continue = 0, Skip = 1, Quit = 2 };
    typedef TypedFunctor2Base<ResultE, CNodePtr, Action*> Functor;

    /// On the heap; the caller deletes it.
    static Action* create() { return new Action; }
    virtual ~Action();

    /// For actions of this class that are created from now on; replaces an earlier function.
    static void registerEnterDefault(const FieldContainerType& type, const Functor& function);
    static void registerLeaveDefault(const FieldContainerType& type, const Functor& function);
    /// For this action alone.
    void registerEnterFunction(const FieldContainerType& type, const Functor& function);
    void registerLeaveFunction(const FieldContainerType& type, const Functor& function);

    /// Quit if a function said so, else Continue. Null roots are passed over.
    ResultE apply(std::vector<NodePtr>::iterator begin, std::vector<NodePtr>::iterator end);
    ResultE apply(NodePtr root);

    /// The node whose function runs.
    NodePtr getActNode() const { return _actNode; }
    UInt32 getNNodes() const { return _actNode != NullFC ? _actNode->getNChildren() : 0; }
    /// A child of it; null if there is none.
    NodePtr getNode(UInt32 index) const {
        return _actNode != NullFC ? _actNode->getChild(index) : NodePtr();
    }
    /// Called by an enter function: only the nodes that it adds are visited; with useNodeList
    /// also if it adds none.
    void addNode(const NodePtr& node) { _chosen.push_back(node); }
    void useNodeList() { _useChosen = true; }

    UInt32 getTravMask() const { return _travMask; }
    void setTravMask(UInt32 mask) { _travMask = mask; }

  protected:
    typedef std::unordered_map<UInt32, Functor> Functions; ///< by type number

    Action();
    Action(Functions enter, Functions leave);
    Action(const Action&) = default;
    Action& operator=(const Action&) = default;

    /// Before and after each apply.
    virtual void start() {}
    virtual void stop() {}

  private:
    /// A node whose children are being visited.
    struct visit {
        NodePtr node;
        std::vector<NodePtr> chosen; ///< what to visit instead of the children
        bool useChosen;
        UInt32 next;
    };

    ResultE call(const Functions& functions, const NodePtr& node);
    ResultE enter(const NodePtr& node, std::vector<visit>& open);
    ResultE walk(const NodePtr& root);

    Functions _enter;
    Functions _leave;
    NodePtr _actNode;
    UInt32 _travMask = 0xFFFFFFFFu;
    std::vector<NodePtr> _chosen;
    bool _useChosen = false;
};

typedef TypedFunctor1Base<Action::ResultE, NodePtr> TraverseEnterFunctor;
typedef TypedFunctor2Base<Action::ResultE, NodePtr, Action::ResultE> TraverseLeaveFunctor;

/// Calls `enter` with every node at and below `root`, whatever the masks. Skip passes over the
/// children, Quit ends the walk. `leave` is called for every node that was entered, also after
/// Skip: with Quit if the walk ends, else with Continue.
OSG_BASE_DLLMAPPING Action::ResultE traverse(NodePtr root, const TraverseEnterFunctor& enter);
OSG_BASE_DLLMAPPING Action::ResultE traverse(NodePtr root, const TraverseEnterFunctor& enter,
                                             const TraverseLeaveFunctor& leave);

OSG_END_NAMESPACE
