#pragma once

#include "OSGAttachment.h"

#include <string>

OSG_BEGIN_NAMESPACE

class StringAttributeMap;
typedef FCPtr<AttachmentPtr, StringAttributeMap> StringAttributeMapPtr;
typedef RefPtr<StringAttributeMapPtr> StringAttributeMapRefPtr;

/// Texts by key, in the order in which keys were first set.
class OSG_BASE_DLLMAPPING StringAttributeMap : public Attachment {
    OSG_CONTAINER_DECL(StringAttributeMap, Attachment, StringAttributeMapPtr)
  public:
    OSG_FIELD(Keys, 3)
    OSG_FIELD(Values, 4)

    void setAttribute(const std::string& key, const std::string& value);
    /// `value` stays untouched when the key is absent.
    bool getAttribute(const std::string& key, std::string& value) const;
    /// Empty when the key is absent.
    std::string getAttribute(const std::string& key) const;
    bool hasAttribute(const std::string& key) const;
    const MFString& getKeys() const { return _mfKeys; }
    /// Makes an empty entry for a new key.
    std::string& operator[](const std::string& key);

    void changed(BitVector which, UInt32 origin) override;

  protected:
    void executeSync(FieldContainer& other, const BitVector& which) override;

  private:
    /// Place of the key, or the number of keys. The index is rebuilt when it has fallen behind.
    std::size_t placeOf(const std::string& key) const;

    MFString _mfKeys;
    MFString _mfValues; ///< as many as keys
    mutable std::map<std::string, std::size_t> _places;
};

/// The map with binding 0 on a container, made if there is none.
OSG_BASE_DLLMAPPING StringAttributeMapPtr
stringAttributeMap(const AttachmentContainerPtr& container);

OSG_END_NAMESPACE
