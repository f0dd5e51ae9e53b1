#pragma once

#include "OSGIDString.h"
#include "OSGNode.h"

#include <istream>
#include <list>
#include <ostream>

OSG_BEGIN_NAMESPACE

/// A scene file format. Making an object of a derived class registers it with the scene file
/// handler for its extensions, destroying it takes it off.
class OSG_BASE_DLLMAPPING SceneFileType {
  public:
    enum { OSG_READ_SUPPORTED = 1, OSG_WRITE_SUPPORTED = 2 };

    virtual ~SceneFileType();
    SceneFileType(const SceneFileType&) = delete;
    SceneFileType& operator=(const SceneFileType&) = delete;

    virtual const Char8* getName() const = 0;
    /// A new root of count 0; null, with a warning, if the stream holds no scene of this format.
    virtual NodePtr read(std::istream& in, const Char8* fileNameOrExtension) const;
    virtual bool write(const NodePtr& node, std::ostream& out,
                       const Char8* fileNameOrExtension) const;
    virtual void setOptions(const Char8* suffix);

    const std::list<IDString>& suffixList() const { return _suffixes; }
    bool doOverride() const { return _override; }
    UInt32 getOverridePriority() const { return _overridePriority; }
    UInt32 getFlags() const { return _flags; }

  protected:
    /// suffixes         extensions without dot; case does not matter
    /// suffixByteCount  bytes of that array
    /// override         takes an extension over from a type of lower priority
    SceneFileType(const Char8* suffixes[], UInt16 suffixByteCount, bool override = false,
                  UInt32 overridePriority = 0,
                  UInt32 flags = OSG_READ_SUPPORTED | OSG_WRITE_SUPPORTED);

    /// Registers nowhere.
    SceneFileType(std::list<IDString> suffixes, UInt32 flags);

  private:
    std::list<IDString> _suffixes;
    bool _override;
    UInt32 _overridePriority;
    UInt32 _flags;
    bool _registered;
};

OSG_END_NAMESPACE
