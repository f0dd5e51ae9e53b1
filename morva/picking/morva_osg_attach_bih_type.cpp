// The payload, and the types of its fields and its attachment.

#include <morva/picking/morva_osg_attach_bih.h>

#include <OpenSG/OSGFieldDescription.h>

#include <morva/picking/morva_osg_core_trees.h>

namespace morva::osg {

namespace {

void freeList(triangle_list* list) {
    if (list == nullptr)
        return;
    delete[] list->triangles;
    delete list;
}

} // namespace

boost::shared_ptr<triangle_list> newTriangleList() {
    return boost::shared_ptr<triangle_list>(new triangle_list, freeList);
}

BIHAttachPayload::BIHAttachPayload() : tree(new bih_tree<float>), geoset(newTriangleList()) {}

} // namespace morva::osg

OSG_BEGIN_NAMESPACE

DataType& FieldDataTraits<morva::osg::BIHAttachPayload>::getType() {
    static DataType& type = *new DataType("BIHAttachPayload", "BIHAttachPayload");
    return type;
}

OSG_DLLEXPORT_SFIELD_DEF1(morva::osg::BIHAttachPayload, MORVA_API);
OSG_DLLEXPORT_MFIELD_DEF1(morva::osg::BIHAttachPayload, MORVA_API);

FieldDescription* MorvaAttachBIHDesc::_desc[] = {new FieldDescription(
    FieldTypeT::getClassType(), getFieldName(), OSG_FC_FIELD_IDM_DESC(MorvaAttachBIH::SimpleField),
    false, (FieldAccessMethod)(&MorvaAttachBIH::getFieldPtr))};

template <> UInt32 MorvaAttachBIH::getBinSize(const BitVector& which) {
    return Attachment::getBinSize(which);
}
template <> void MorvaAttachBIH::copyToBin(BinaryDataHandler& out, const BitVector& which) {
    Attachment::copyToBin(out, which);
}
template <> void MorvaAttachBIH::copyFromBin(BinaryDataHandler& in, const BitVector& which) {
    Attachment::copyFromBin(in, which);
}
template <> void MorvaAttachBIH::dump(UInt32 indent, const BitVector flags) const {
    Attachment::dump(indent, flags);
}

OSG_FC_DLLEXPORT_DEF(SimpleAttachment, MorvaAttachBIHDesc, MORVA_API);

OSG_END_NAMESPACE
