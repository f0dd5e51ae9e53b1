#include "part_names.h"

#include <cstdint>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGStringAttributeMap.h>

#include "text.h"

namespace morva::host {

namespace {

std::string nameOf(const ::osg::AttachmentContainerPtr& container) {
    const ::osg::Char8* name = getName(container);
    return name != nullptr ? name : "";
}

/// Valid UTF-8 without control characters and without what stands in `others`.
std::string safeText(const std::string& text, const char* others) {
    std::string safe = validUtf8(text);
    for (char& letter : safe) {
        const auto code = static_cast<unsigned char>(letter);
        if (code < 0x20 || code == 0x7F || std::strchr(others, letter) != nullptr)
            letter = '_';
    }
    return safe;
}

void makeNameSafe(const ::osg::AttachmentContainerPtr& container) {
    const std::string name = nameOf(container);
    const std::string safe = safeText(name, "\"\\");
    if (safe != name)
        setName(container, safe);
}

void makeAttributesSafe(const ::osg::AttachmentContainerPtr& container) {
    const auto attributes = ::osg::StringAttributeMapPtr::dcast(
        container->findAttachment(::osg::StringAttributeMap::getClassType()));
    if (attributes == ::osg::NullFC)
        return;
    const ::osg::StringAttributeMapRefPtr copy(::osg::StringAttributeMap::create());
    bool changed = false;
    for (::osg::UInt32 i = 0; i < attributes->getKeys().size(); ++i) {
        const std::string key = attributes->getKeys()[i], value = attributes->getAttribute(key);
        const std::string safe_key = safeText(key, "\"\\"), safe_value = safeText(value, "");
        changed = changed || safe_key != key || safe_value != value;
        copy->setAttribute(safe_key, safe_value);
    }
    if (changed)
        container->addAttachment(copy.get());
}

/// Hands out each name once.
class name_register {
  public:
    std::string unique(const std::string& wanted) {
        if (taken_.insert(wanted).second)
            return wanted;
        std::uint64_t& number = last_[wanted];
        number = number == 0 ? 2 : number;
        for (;; ++number) {
            std::string name = wanted + "~" + std::to_string(number);
            if (taken_.insert(name).second)
                return name;
        }
    }

  private:
    std::unordered_set<std::string> taken_;
    std::unordered_map<std::string, std::uint64_t> last_; ///< number to try next, per name
};

struct walk {
    bool rename;
    name_register names;
    std::vector<named_part> parts;
    std::vector<named_part> others; ///< no geometry nodes; their paths are not yet unique

    void visit(const ::osg::NodePtr& node, const std::string& above, ::osg::UInt32 place) {
        const std::string own = nameOf(node);
        const bool geometry = ::osg::GeometryPtr::dcast(node->getCore()) != ::osg::NullFC;
        const std::string original = own.empty() && geometry ? nameOf(node->getCore()) : own;
        const std::string path =
            above + (original.empty() ? "#" + std::to_string(place) : safeName(original));
        if (geometry) {
            const std::string unique = names.unique(path);
            if (rename)
                setName(node, unique);
            parts.push_back(
                {node, node.getFieldContainerId(), original, unique, rename ? unique : original});
        } else {
            others.push_back({node, node.getFieldContainerId(), original, path, original});
        }
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
            visit(node->getChild(i), path + "/", i);
    }
};

} // namespace

std::string safeName(const std::string& name) { return safeText(name, "\"\\/"); }

void makeTreeSafe(const ::osg::NodePtr& root) {
    makeNameSafe(root);
    makeAttributesSafe(root);
    if (root->getCore() != ::osg::NullFC) {
        makeNameSafe(root->getCore());
        makeAttributesSafe(root->getCore());
    }
    for (::osg::UInt32 i = 0; i < root->getNChildren(); ++i)
        makeTreeSafe(root->getChild(i));
}

std::vector<named_part> namedParts(const ::osg::NodePtr& root, bool rename) {
    walk through{rename, {}, {}, {}};
    through.visit(root, std::string(), 0);
    return std::move(through.parts);
}

std::vector<named_part> namedNodes(const ::osg::NodePtr& root) {
    walk through{false, {}, {}, {}};
    through.visit(root, std::string(), 0);
    std::vector<named_part> nodes = std::move(through.parts);
    for (named_part& other : through.others) {
        other.path = through.names.unique(other.path);
        nodes.push_back(std::move(other));
    }
    return nodes;
}

} // namespace morva::host
