#include "OSGSceneFields.h"

#include "OpenSG/OSGGeometry.h"
#include "OpenSG/OSGImage.h"
#include "OpenSG/OSGMFBaseTypes.h"
#include "OpenSG/OSGMaterial.h"
#include "OpenSG/OSGQuaternion.h"
#include "OpenSG/OSGStateChunk.h"

#include <algorithm>
#include <unordered_map>

OSG_BEGIN_NAMESPACE

namespace {

template <class T> UInt8* dataOfSingle(Field& field) {
    return reinterpret_cast<UInt8*>(&static_cast<SField<T>&>(field).getValue());
}
template <class T> UInt8* dataOfList(Field& field) {
    return reinterpret_cast<UInt8*>(static_cast<MField<T>&>(field).getValues().data());
}
template <class T> void resizeList(Field& field, std::size_t count) {
    static_cast<MField<T>&>(field).resize(count);
}

using codecs_by_type = std::unordered_map<UInt32, plain_codec>;

template <class Number, class... Types> void enterCodecs(codecs_by_type& codecs) {
    (codecs.insert(
         {{SField<Types>::getClassType().getId(),
           {sizeof(Types), sizeof(Number), false, &dataOfSingle<Types>, nullptr}},
          {MField<Types>::getClassType().getId(),
           {sizeof(Types), sizeof(Number), true, &dataOfList<Types>, &resizeList<Types>}}}),
     ...);
}

const codecs_by_type& allCodecs() {
    static const codecs_by_type& all = *[] {
        auto* codecs = new codecs_by_type;
        enterCodecs<Int8, Int8, UInt8, Vec3b, Color3ub, Color4ub>(*codecs);
        enterCodecs<Int16, Int16, UInt16, Vec3s, Pnt2s, Pnt3s, Pnt4s>(*codecs);
        enterCodecs<Int32, Int32, UInt32>(*codecs);
        enterCodecs<Int64, Int64, UInt64>(*codecs);
        enterCodecs<Real32, Real32, Vec2f, Vec3f, Vec4f, Pnt2f, Pnt3f, Pnt4f, Color3f, Color4f,
                    Matrix, Quaternion>(*codecs);
        enterCodecs<Real64, Real64, Vec2d, Vec3d, Vec4d, Pnt2d, Pnt3d, Pnt4d>(*codecs);
        codecs->insert({SFBool::getClassType().getId(),
                        {sizeof(bool), sizeof(bool), false, &dataOfSingle<bool>, nullptr}});
        return codecs;
    }();
    return all;
}

/// The array of a property has one name in the layer, and one by role and form in a file.
std::string nameOfArray(const FieldContainerType& type) {
    if (type.isDerivedFrom(GeoColors::getClassType()))
        return type == GeoColors3f::getClassType() ? "colors" : "Colors";
    if (type.isDerivedFrom(GeoTexCoords::getClassType()))
        return "TexCoords";
    if (type.isDerivedFrom(GeoPositions::getClassType()))
        return "positions";
    if (type.isDerivedFrom(GeoNormals::getClassType()))
        return "normals";
    if (type.isDerivedFrom(GeoIndices::getClassType()))
        return "indices";
    return type.isDerivedFrom(GeoPTypes::getClassType()) ? "types" : "lengths";
}

std::string nameOf(const FieldContainerType& type, const FieldDescription& desc) {
    const std::string name = desc.getCName();
    return name == "geoPropData" ? nameOfArray(type) : name;
}

/// Numbers of OpenGL and times have types of their own in a file.
std::string typeTextOf(const FieldContainerType& type, const FieldDescription& desc) {
    const std::string name = desc.getCName();
    std::string text = desc.getType().getCName();
    if (type.isDerivedFrom(Image::getClassType()))
        return name == "frameDelay" ? "SFTime" : text;
    const bool look = type.isDerivedFrom(Material::getClassType()) ||
                      type.isDerivedFrom(StateChunk::getClassType());
    if (!look || text != "SFUInt32")
        return text;
    for (const char* number : {"choice", "frame", "borderWidth", "NPOTMatrixScale"}) {
        if (name == number)
            return text;
    }
    return "SFGLenum";
}

scene_kind kindOf(const FieldContainerType& type) {
    if (type == Geometry::getClassType() || type == Image::getClassType())
        return scene_kind::none;
    if (type.isNode())
        return scene_kind::node;
    if (type.isNodeCore())
        return scene_kind::core;
    if (type.isDerivedFrom(Material::getClassType()))
        return scene_kind::material;
    if (type.isDerivedFrom(StateChunk::getClassType()))
        return scene_kind::chunk;
    return type.isAttachment() ? scene_kind::attachment : scene_kind::other;
}

/// False for a field without a form in a file: attachments of attachments, and elements or links
/// that only an application knows.
bool findForm(const FieldContainerType& type, scene_field& field) {
    const FieldType& fieldType = field.desc->getType();
    if (fieldType == SFAttachmentMap::getClassType()) {
        field.form = field_form::attachments;
        return !type.isAttachment();
    }
    if (fieldType == SFString::getClassType() || fieldType == MFString::getClassType()) {
        field.form = field_form::texts;
        return true;
    }
    field.link = osgFindSceneLink(type, field.desc->getFieldId());
    if (field.link != nullptr) {
        field.form = field_form::link;
        return true;
    }
    const auto codec = allCodecs().find(fieldType.getId());
    field.form = field_form::plain;
    field.codec = codec != allCodecs().end() ? &codec->second : nullptr;
    return field.codec != nullptr;
}

/// The name behind SF or MF, of types that share their bytes the same one.
std::string_view commonName(std::string_view type) {
    const std::string_view name = type.substr(std::min<std::size_t>(2, type.size()));
    if (name == "GLenum")
        return "UInt32";
    return name == "Time" ? "Real64" : name;
}

} // namespace

scene_type osgSceneTypeOf(FieldContainerType& type) {
    scene_type result{&type, type.getCName(), kindOf(type), {}};
    for (const FieldDescription* desc : type.getFieldDescs()) {
        if (desc->isInternal())
            continue;
        const bool isList = desc->getType().getCardinality() == FieldType::MULTI_FIELD;
        scene_field field{desc,
                          nameOf(type, *desc),
                          typeTextOf(type, *desc),
                          field_form::plain,
                          isList,
                          nullptr,
                          nullptr};
        if (findForm(type, field))
            result.fields.push_back(field);
    }
    return result;
}

bool osgSameSceneFieldType(std::string_view a, std::string_view b) {
    return a.substr(0, 2) == b.substr(0, 2) && commonName(a) == commonName(b);
}

OSG_END_NAMESPACE
