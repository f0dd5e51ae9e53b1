#pragma once

// A mark that a host can put on a container: an attachment whose payload holds nothing. The library
// registers the type and neither makes nor reads one.
//
//     core->addAttachment(::osg::MorvaAttachSetup::create());

#include <string>

#include <OpenSG/OSGAttachment.h>
#include <OpenSG/OSGConfig.h>
#include <OpenSG/OSGMField.h>
#include <OpenSG/OSGSField.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Nothing; all are equal.
struct MORVA_API SetupAttachPayload {
    bool operator==(const SetupAttachPayload&) const { return true; }
};

} // namespace morva::osg

OSG_BEGIN_NAMESPACE

/// Payloads have no text and no bytes of their own.
template <>
struct FieldDataTraits<morva::osg::SetupAttachPayload>
    : public FieldTraitsRecurseBase<morva::osg::SetupAttachPayload> {
    static DataType& getType();
    static const char* getSName() { return "SFMorva_Setup"; }
    static const char* getMName() { return "MFMorva_Setup"; }
    enum { StringConvertable = ToStringConvertable | FromStringConvertable };
    static bool getFromString(morva::osg::SetupAttachPayload&, const Char8*&) { return true; }
    static void putToString(const morva::osg::SetupAttachPayload&, std::string& text) {
        text = "\"\"";
    }
};

// One of each for all programs and libraries.
extern template class MORVA_API SField<morva::osg::SetupAttachPayload>;
extern template class MORVA_API MField<morva::osg::SetupAttachPayload>;

typedef SField<morva::osg::SetupAttachPayload> SFMorva_Setup;
typedef MField<morva::osg::SetupAttachPayload> MFMorva_Setup;

struct MORVA_API MorvaAttachSetupDesc {
    typedef SFMorva_Setup FieldTypeT;
    static FieldDescription* _desc[];
    static const Char8* getTypeName() { return "MorvaSetup"; }
    static const Char8* getFieldName() { return "morvasetup"; }
    static const Char8* getGroupName() { return "morvasetup"; }
    static const Char8* getParentTypeName() { return "Attachment"; }
    static InitContainerF getInitMethod() { return nullptr; }
    static FieldDescription** getDesc() { return _desc; }
};

typedef SimpleAttachment<MorvaAttachSetupDesc> MorvaAttachSetup;
typedef FCPtr<AttachmentPtr, MorvaAttachSetup> MorvaAttachSetupPtr;

// The fields of the base class alone: a payload does not travel.
template <> MORVA_API UInt32 MorvaAttachSetup::getBinSize(const BitVector& which);
template <>
MORVA_API void MorvaAttachSetup::copyToBin(BinaryDataHandler& out, const BitVector& which);
template <>
MORVA_API void MorvaAttachSetup::copyFromBin(BinaryDataHandler& in, const BitVector& which);
template <> MORVA_API void MorvaAttachSetup::dump(UInt32 indent, const BitVector flags) const;

extern template class SimpleAttachment<MorvaAttachSetupDesc>;

OSG_END_NAMESPACE
