#include <morva/idmap/morva_osg_late_names.h>

#include <OpenSG/OSGSimpleAttachments.h>

namespace morva::osg {

namespace {

/// Where the names of this thread wait; null: they don't.
thread_local late_names* open_scope = nullptr;

void setNames(const ::osg::NodePtr& node, const std::string& name) {
    ::osg::setName(node, name);
    ::osg::setName(node->getCore(), name);
}

void drawName(const ::osg::NodePtr& node, name_source source) {
    setNames(node, (getIDmapHandler().*source)());
}

} // namespace

late_names::scope::scope(late_names* names) : before_(open_scope) {
    if (names != nullptr)
        open_scope = names;
}

late_names::scope::~scope() { open_scope = before_; }

void late_names::give() {
    const auto all = std::exchange(waiting_, {});
    for (const auto& [node, source] : all)
        drawName(node.get(), source);
}

void nameGeometry(const ::osg::NodePtr& node, name_source source) {
    if (open_scope == nullptr) {
        drawName(node, source);
        return;
    }
    open_scope->waiting_.emplace_back(node, source);
    setNames(node, "waiting"); // made here, what holds the name takes no time at the join
}

} // namespace morva::osg
