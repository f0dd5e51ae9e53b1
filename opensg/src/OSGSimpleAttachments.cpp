#include "OpenSG/OSGSimpleAttachments.h"

#include "OpenSG/OSGLog.h"

OSG_BEGIN_NAMESPACE

FieldDescription** NameDesc::getDesc() {
    static FieldDescription* desc[] = {
        new FieldDescription(SFString::getClassType(), getFieldName(), Name::SimpleFieldId,
                             BitVector(Name::SimpleFieldMask), false,
                             FieldAccessFunction([](FieldContainer& container) -> Field* {
                                 return static_cast<Name&>(container).getFieldPtr();
                             }))};
    return desc;
}

template class SimpleAttachment<NameDesc>;
static const FieldContainerType& registeredName = Name::getClassType();

namespace {

NamePtr nameOf(const AttachmentContainerPtr& container) {
    return NamePtr::dcast(container->findAttachment(Name::getClassGroupId()));
}

} // namespace

const Char8* getName(const AttachmentContainerPtr& container) {
    if (container == NullFC)
        return nullptr;
    const NamePtr name = nameOf(container);
    return name == NullFC ? nullptr : name->getFieldPtr()->getValue().c_str();
}

void setName(const AttachmentContainerPtr& container, const std::string& text) {
    if (container == NullFC) {
        SFATAL << "setName: no container" << endLog;
        return;
    }
    NamePtr name = nameOf(container);
    if (name == NullFC) {
        name =
            filledIn(Name::create(), [&](const NamePtr& made) { container->addAttachment(made); });
        endEditCP(container, AttachmentContainer::AttachmentsFieldMask);
    }
    name->getFieldPtr()->setValue(text);
    endEditCP(name);
}

void setName(const AttachmentContainerPtr& container, const Char8* text) {
    if (text != nullptr) {
        setName(container, std::string(text));
    } else if (container == NullFC) {
        SFATAL << "setName: no container" << endLog;
    } else if (const NamePtr name = nameOf(container); name != NullFC) {
        container->subAttachment(name);
        endEditCP(container, AttachmentContainer::AttachmentsFieldMask);
    }
}

OSG_END_NAMESPACE
