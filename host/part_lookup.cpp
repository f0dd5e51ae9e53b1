#include "part_lookup.h"

#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_run_plan.h>

namespace morva::host {

namespace {

std::string nameOf(const ::osg::NodePtr& node) {
    const ::osg::Char8* const name = getName(node);
    return name != nullptr ? name : "";
}

} // namespace

node_parts::node_parts(const std::vector<named_part>& parts) {
    for (const named_part& part : parts) {
        const auto at =
            by_path_.emplace(part.path, part_label{part.original_name, part.path, {}}).first;
        by_node_.emplace(part.node_id, &at->second);
    }
}

part_label node_parts::of(const morva::osg::ray_hit& hit) const {
    const auto found = by_node_.find(hit.node.getFieldContainerId());
    return found != by_node_.end() ? *found->second : part_label();
}

const part_label* node_parts::at(const std::string& path) const {
    const auto found = by_path_.find(path);
    return found != by_path_.end() ? &found->second : nullptr;
}

file_parts::file_parts(const std::string& path, const model& read, const node_parts& nodes)
    : features_(readFeatureIds(path, read)), ids_(read.root.get()), nodes_(nodes) {}

part_label file_parts::of(const morva::osg::ray_hit& hit) const {
    part_label label = nodes_.of(hit);
    if (const part_row* const part = features_.partOf(hit.node, hit.triangle))
        return {part->name, part->path, label.path};
    // The map has unique names alone; what stands behind the last "/" is the best name there is.
    const std::string source = ids_.nameOf(hit.node, hit.object);
    if (!source.empty())
        return {source.substr(source.rfind('/') + 1), source, label.path};
    return label;
}

std::vector<std::string> carriedParts(const ::osg::NodePtr& root, const std::string& parameters) {
    const morva::osg::run_plan plan = morva::osg::planOf(parameters);
    const morva::osg::optTree_setup& setup = plan.setup;
    // What the stages before the merge make transparent or lay open cannot be foretold.
    const bool new_materials = plan.atlas && !plan.atlas->exact;
    if (!plan.orders_cache || new_materials || setup.merge.alphageometry ||
        setup.mostusedmaterial || setup.removelod || setup.removeswitch ||
        setup.ambientocclusion != 0 || plan.builds_hull)
        return {};
    std::vector<::osg::NodePtr> plain, transparent;
    morva::osg::getGeometryNodes(root, plain, transparent, false);
    std::vector<std::string> names;
    names.reserve(transparent.size());
    for (const ::osg::NodePtr& node : transparent)
        names.push_back(nameOf(node));
    return names;
}

result_parts::result_parts(const ::osg::NodePtr& result, const node_parts& sources,
                           const std::vector<std::string>& carried)
    : root_(result), ids_(result), sources_(&sources) {
    // Each of them hangs below a transform of its own; nothing else does, but for what was hidden,
    // which comes behind them.
    std::size_t next = 0;
    for (::osg::UInt32 i = 0; i < result->getNChildren() && next < carried.size(); ++i) {
        const ::osg::NodePtr child = result->getChild(i);
        if (::osg::TransformPtr::dcast(child->getCore()) != ::osg::NullFC)
            carried_.emplace(child.getFieldContainerId(), carried[next++]);
    }
    if (next < carried.size())
        carried_.clear();
}

std::string result_parts::nameOf(const morva::osg::ray_hit& hit, const std::string& core) const {
    if (sources_->at(core) != nullptr)
        return core;
    std::string name = ids_.nameOf(hit.node, hit.object);
    if (!name.empty())
        return name;
    ::osg::NodePtr top = hit.node;
    while (top != ::osg::NullFC && top->getParent() != root_)
        top = top->getParent();
    const auto found =
        top != ::osg::NullFC ? carried_.find(top.getFieldContainerId()) : carried_.end();
    return found != carried_.end() ? found->second : std::string();
}

part_label result_parts::of(const morva::osg::ray_hit& hit) const {
    const std::string core = host::nameOf(hit.node);
    const part_label* const part = sources_->at(nameOf(hit, core));
    if (part == nullptr)
        return {{}, {}, core};
    return {part->name, part->path, core == part->path ? std::string() : core};
}

} // namespace morva::host
