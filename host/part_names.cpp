#include "part_names.h"

#include <cstdint>
#include <unordered_map>
#include <unordered_set>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include "text.h"

namespace morva::host {

namespace {

std::string nameOf(const ::osg::AttachmentContainerPtr& container) {
    const ::osg::Char8* name = getName(container);
    return name != nullptr ? name : "";
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
            const std::string name = wanted + "~" + std::to_string(number);
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

    void visit(const ::osg::NodePtr& node, const std::string& above, ::osg::UInt32 place) {
        const std::string own = nameOf(node);
        const bool geometry = ::osg::GeometryPtr::dcast(node->getCore()) != ::osg::NullFC;
        const std::string original = own.empty() && geometry ? nameOf(node->getCore()) : own;
        const std::string path =
            above + (original.empty() ? "#" + std::to_string(place) : safeName(original));
        if (geometry) {
            const std::string name = rename ? names.unique(path) : original;
            if (rename)
                setName(node, name);
            parts.push_back({node, original, name});
        }
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
            visit(node->getChild(i), path + "/", i);
    }
};

} // namespace

std::string safeName(const std::string& name) {
    std::string safe = validUtf8(name);
    for (char& letter : safe) {
        const auto code = static_cast<unsigned char>(letter);
        if (code < 0x20 || code == 0x7F || letter == '"' || letter == '\\' || letter == '/')
            letter = '_';
    }
    return safe;
}

std::vector<named_part> namedParts(const ::osg::NodePtr& root, bool rename) {
    walk through{rename, {}, {}};
    through.visit(root, std::string(), 0);
    return std::move(through.parts);
}

} // namespace morva::host
