#pragma once

#include "OSGNode.h"

#include <list>
#include <string>

OSG_BEGIN_NAMESPACE

/// An operation on a scene as an object: made by name, given parameters, run on a root.
class OSG_BASE_DLLMAPPING GraphOp {
  public:
    explicit GraphOp(const char* name = "");
    virtual ~GraphOp();
    GraphOp(const GraphOp&) = delete;
    GraphOp& operator=(const GraphOp&) = delete;

    /// Whether the operation could run.
    virtual bool traverse(NodePtr& root) = 0;
    /// A fresh operation of the same kind.
    virtual GraphOp* create() = 0;
    virtual void setParams(const std::string params) = 0;
    virtual std::string usage() = 0;

    const std::string& getName() const { return _name; }
    void setName(const char* name) { _name = name != nullptr ? name : ""; }

    /// Nodes that the operation passes over, with all below them; by identity or by name.
    void addToExcludeList(const NodePtr& node);
    void addToExcludeList(const std::string& name);
    void removeFromExcludeList(const NodePtr& node);
    void removeFromExcludeList(const std::string& name);
    void clearExcludeList();
    bool isInExcludeList(const NodePtr& node) const;

  private:
    std::string _name;
    std::list<NodeRefPtr> _excludedNodes;
    std::list<std::string> _excludedNames;
};

OSG_END_NAMESPACE
