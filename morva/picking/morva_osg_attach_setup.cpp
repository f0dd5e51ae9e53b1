#include <morva/picking/morva_osg_attach_setup.h>

#include <OpenSG/OSGFieldDescription.h>

OSG_BEGIN_NAMESPACE

DataType& FieldDataTraits<morva::osg::SetupAttachPayload>::getType() {
    static DataType& type = *new DataType("SetupAttachPayload", "Root");
    return type;
}

OSG_DLLEXPORT_SFIELD_DEF1(morva::osg::SetupAttachPayload, MORVA_API);
OSG_DLLEXPORT_MFIELD_DEF1(morva::osg::SetupAttachPayload, MORVA_API);

FieldDescription* MorvaAttachSetupDesc::_desc[] = {
    new FieldDescription(FieldTypeT::getClassType(), getFieldName(),
                         OSG_FC_FIELD_IDM_DESC(MorvaAttachSetup::SimpleField), false,
                         (FieldAccessMethod)(&MorvaAttachSetup::getFieldPtr))};

template <> UInt32 MorvaAttachSetup::getBinSize(const BitVector& which) {
    return Attachment::getBinSize(which);
}
template <> void MorvaAttachSetup::copyToBin(BinaryDataHandler& out, const BitVector& which) {
    Attachment::copyToBin(out, which);
}
template <> void MorvaAttachSetup::copyFromBin(BinaryDataHandler& in, const BitVector& which) {
    Attachment::copyFromBin(in, which);
}
template <> void MorvaAttachSetup::dump(UInt32 indent, const BitVector flags) const {
    Attachment::dump(indent, flags);
}

OSG_FC_DLLEXPORT_DEF(SimpleAttachment, MorvaAttachSetupDesc, MORVA_API);

OSG_END_NAMESPACE
