#pragma once

#include "OSGGroup.h"

OSG_BEGIN_NAMESPACE

class DistanceLOD;
typedef FCPtr<GroupPtr, DistanceLOD> DistanceLODPtr;
typedef RefPtr<DistanceLODPtr> DistanceLODRefPtr;

/// Core that shows the child that fits the viewer's distance from the centre.
class OSG_BASE_DLLMAPPING DistanceLOD : public Group {
    OSG_CONTAINER_DECL(DistanceLOD, Group, DistanceLODPtr)
  public:
    OSG_FIELD(Center, 3)
    OSG_FIELD(Range, 4)

    const Pnt3f& getCenter() const { return _sfCenter.getValue(); }
    void setCenter(const Pnt3f& center) { _sfCenter.setValue(center); }
    MFReal32& getRange() { return _mfRange; }
    const MFReal32& getRange() const { return _mfRange; }
    Real32& getRange(UInt32 index) { return _mfRange[index]; }
    const MFReal32* getMFRange() const { return &_mfRange; }
    MFReal32* editMFRange() { return &_mfRange; }

  protected:
    DistanceLOD() = default;
    DistanceLOD(const DistanceLOD&) = default;

  private:
    SField<Pnt3f> _sfCenter;
    MFReal32 _mfRange;
};

OSG_END_NAMESPACE
