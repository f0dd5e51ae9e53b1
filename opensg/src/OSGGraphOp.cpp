#include "OpenSG/OSGGraphOp.h"

#include "OpenSG/OSGGraphOpSeq.h"
#include "OpenSG/OSGSimpleAttachments.h"

#include <algorithm>

OSG_BEGIN_NAMESPACE

GraphOp::GraphOp(const char* name) : _name(name != nullptr ? name : "") {}
GraphOp::~GraphOp() = default;

void GraphOp::addToExcludeList(const NodePtr& node) { _excludedNodes.push_back(NodeRefPtr(node)); }
void GraphOp::addToExcludeList(const std::string& name) { _excludedNames.push_back(name); }

void GraphOp::removeFromExcludeList(const NodePtr& node) {
    _excludedNodes.remove_if([&node](const NodeRefPtr& held) { return held == node; });
}

void GraphOp::removeFromExcludeList(const std::string& name) { _excludedNames.remove(name); }

void GraphOp::clearExcludeList() {
    _excludedNodes.clear();
    _excludedNames.clear();
}

bool GraphOp::isInExcludeList(const NodePtr& node) const {
    if (std::any_of(_excludedNodes.begin(), _excludedNodes.end(),
                    [&node](const NodeRefPtr& held) { return held == node; })) {
        return true;
    }
    const Char8* name = _excludedNames.empty() ? nullptr : ::osg::getName(node);
    return name != nullptr &&
           std::find(_excludedNames.begin(), _excludedNames.end(), name) != _excludedNames.end();
}

GraphOpSeq::GraphOpSeq() = default;
GraphOpSeq::~GraphOpSeq() = default;

void GraphOpSeq::addGraphOp(GraphOp* operation) {
    if (operation != nullptr)
        _operations.emplace_back(operation);
}

bool GraphOpSeq::traverse(NodePtr& root) {
    bool allRan = true;
    for (const std::unique_ptr<GraphOp>& operation : _operations) {
        allRan = operation->traverse(root) && allRan;
    }
    return allRan;
}

OSG_END_NAMESPACE
