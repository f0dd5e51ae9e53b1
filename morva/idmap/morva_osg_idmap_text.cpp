// The ID map as text: string attributes of nodes, the input tree, and the attachments of the root.

#include <morva/idmap/morva_osg_idmaphandler.h>

#include <locale>
#include <sstream>

#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGStringAttributeMap.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_tools.h>

namespace morva::osg {

namespace {

::osg::StringAttributeMapPtr attributesOf(const ::osg::AttachmentContainerPtr& container) {
    if (container == ::osg::NullFC)
        return ::osg::NullFC;
    const ::osg::FieldContainerType& type = ::osg::StringAttributeMap::getClassType();
    return ::osg::StringAttributeMapPtr::dcast(container->findAttachment(type));
}

/// `text` with a backslash before each backslash and each double quote; nothing else is touched.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\\' || c == '"')
            result += '\\';
        result += c;
    }
    return result;
}

/// Name of the node, else of its core, else "none".
std::string treeName(const ::osg::NodePtr& node) {
    if (const ::osg::Char8* name = ::osg::getName(node))
        return name;
    if (const ::osg::Char8* name = ::osg::getName(node->getCore()))
        return name;
    return "none";
}

/// The first `count` numbers joined by blanks, six significant digits.
template <typename Numbers> std::string textOf(const Numbers& numbers, ::osg::UInt32 count) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    for (::osg::UInt32 i = 0; i < count; ++i)
        text << (i == 0 ? "" : " ") << static_cast<double>(numbers[i]);
    return text.str();
}

/// Diffuse colour of a material as four numbers; zeros for one that has none or is gone.
std::string diffuseText(const ::osg::MaterialPtr& material) {
    ::osg::Color4f diffuse(0.0F, 0.0F, 0.0F, 0.0F);
    ::osg::Color4f specular, ambient, emission;
    float shininess = 0.0F;
    getColor(livingOne(material), diffuse, specular, ambient, emission, shininess);
    return textOf(diffuse, 4);
}

/// Material of each appearance name; of equal names the first in map order counts.
std::map<std::string, ::osg::MaterialPtr> materialsByAppearance(const JsonFileContent& content) {
    std::map<std::string, ::osg::MaterialPtr> first;
    for (const auto& [material, name] : content.appearances)
        first.emplace(name, material);
    return first;
}

std::string joined(const std::set<std::string>& texts) {
    std::string result;
    for (const std::string& text : texts) {
        if (&text != &*texts.begin())
            result += ',';
        result += text;
    }
    return result;
}

/// Makes an empty attribute map that the root holds under `binding`.
::osg::StringAttributeMapPtr newMap(const ::osg::NodePtr& root, ::osg::UInt16 binding) {
    fresh<::osg::StringAttributeMapPtr> map(::osg::StringAttributeMap::create());
    const open_edit edit(root, ::osg::AttachmentContainer::AttachmentsFieldMask);
    root->addAttachment(map.get(), binding);
    return map.release();
}

} // namespace

std::string idmapHandler::getMetaData(::osg::NodePtr node, std::string indent) {
    if (node == ::osg::NullFC)
        return {};
    ::osg::StringAttributeMapPtr attributes = attributesOf(node);
    if (attributes == ::osg::NullFC)
        attributes = attributesOf(node->getCore());
    if (attributes == ::osg::NullFC)
        return {};

    std::string text;
    const ::osg::MFString& keys = attributes->getKeys();
    for (::osg::UInt32 i = 0; i < keys.size(); ++i) {
        text += '\n' + indent + '"' + keys[i] + "\":\"";
        text += escaped(attributes->getAttribute(keys[i])) + '"';
        if (i + 1 < keys.size())
            text += ',';
    }
    return text;
}

void idmapHandler::writeTree(::osg::NodePtr node, unsigned depth) {
    if (node == ::osg::NullFC)
        return;
    const std::string indent(depth, '\t');
    const ::osg::NodeCorePtr core = node->getCore();
    const char* type = core == ::osg::NullFC ? "none" : core->getType().getCName();
    tree << indent << "\"name\":\"" << treeName(node) << "\"," << std::endl;
    tree << indent << "\"type\":\"" << type << "\"," << std::endl;
    tree << indent << "\"render\":\"" << (node->getTravMask() != 0 ? "true" : "false") << "\","
         << std::endl;
    tree << indent << "\"meta\": {" << getMetaData(node, indent) << "}";

    const ::osg::UInt32 count = node->getNChildren();
    if (count > 0) {
        tree << "," << std::endl << indent << "\"children\":[";
        for (::osg::UInt32 i = 0; i < count; ++i) {
            tree << std::endl << indent << "{" << std::endl;
            writeTree(node->getChild(i), depth + 1);
            tree << indent << "}";
            if (i + 1 < count)
                tree << ",";
        }
        tree << "]";
    }
    tree << std::endl;
}

void addIDmapInfo(::osg::NodePtr root) {
    if (root == ::osg::NullFC)
        return;
    const idmapHandler& handler = getIDmapHandler();

    const ::osg::StringAttributeMapPtr sets = newMap(root, 1);
    const open_edit sets_edit(sets);
    for (const auto& [name, set] : handler.texCoordMapping)
        sets->setAttribute(name, set);

    const ::osg::StringAttributeMapPtr names = newMap(root, 2);
    const ::osg::StringAttributeMapPtr mins = newMap(root, 3);
    const ::osg::StringAttributeMapPtr maxs = newMap(root, 4);
    const ::osg::StringAttributeMapPtr colours = newMap(root, 5);
    const open_edit names_edit(names), mins_edit(mins), maxs_edit(maxs), colours_edit(colours);
    const auto material_of = materialsByAppearance(handler);
    for (std::size_t id = 0; id < handler.names.size(); ++id) {
        const std::string key = std::to_string(id);
        names->setAttribute(key, handler.names[id]);
        if (id < handler.mins.size())
            mins->setAttribute(key, textOf(handler.mins[id], 3));
        if (id < handler.maxs.size())
            maxs->setAttribute(key, textOf(handler.maxs[id], 3));
        std::string colour = "0 0 0 0";
        if (id < handler.appearanceNames.size()) {
            const auto found = material_of.find(handler.appearanceNames[id]);
            if (found != material_of.end())
                colour = diffuseText(found->second);
        }
        colours->setAttribute(key, colour);
    }

    const ::osg::StringAttributeMapPtr uses = newMap(root, 6);
    const open_edit uses_edit(uses);
    for (const auto& [id, outputs] : handler.usage) {
        // IDs that came with the model's own seventh set may name nothing here.
        if (id < 0 || static_cast<std::size_t>(id) >= handler.names.size())
            continue;
        uses->setAttribute(handler.names[static_cast<std::size_t>(id)], joined(outputs));
    }
}

} // namespace morva::osg
