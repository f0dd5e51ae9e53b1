#pragma once

#include "OSGLine.h"
#include "OSGMatrix.h"
#include "OSGVector.h"

OSG_BEGIN_NAMESPACE

/// A bounding volume. A fresh one is valid and empty. An infinite or static one is not extended,
/// and an invalid one neither.
class OSG_BASE_DLLMAPPING Volume {
  public:
    virtual ~Volume();

    bool isValid() const { return has(Valid); }
    void setValid(bool value = true) {
        if (!isStatic())
            put(Valid, value);
    }
    bool isEmpty() const { return has(Empty); }
    /// An emptied volume is valid and finite again.
    void setEmpty(bool value = true) {
        put(Empty, value);
        if (value) {
            put(Valid, true);
            put(Infinite, false);
        }
    }
    bool isStatic() const { return has(Static); }
    void setStatic(bool value = true) { put(Static, value); }
    bool isInfinite() const { return has(Infinite); }
    void setInfinite(bool value = true) {
        put(Infinite, value);
        if (value)
            put(Empty, false);
    }
    bool isUntouchable() const { return isInfinite() || isStatic() || !isValid(); }
    UInt16 getState() const { return _state; }
    void setState(UInt16 state) { _state = state; }

    virtual void getCenter(Pnt3f& center) const = 0;
    virtual Real32 getScalarVolume() const = 0;
    /// The corners of the enclosing box; those of an empty volume mean nothing.
    virtual void getBounds(Pnt3f& low, Pnt3f& high) const = 0;
    virtual void extendBy(const Pnt3f& point) = 0;
    virtual void extendBy(const Volume& volume) = 0;
    virtual bool intersect(const Pnt3f& point) const = 0;
    virtual bool intersect(const Line& line) const = 0;
    virtual bool intersect(const Line& line, Real32& enter, Real32& exit) const = 0;
    virtual bool intersect(const Volume& volume) const = 0;
    virtual bool isOnSurface(const Pnt3f& point) const = 0;
    virtual void transform(const Matrix& matrix) = 0;

    Pnt3f getMin() const;
    Pnt3f getMax() const;

  protected:
    Volume() = default;
    Volume(const Volume&) = default;
    Volume& operator=(const Volume&) = default;

  private:
    enum : UInt16 { Valid = 1, Empty = 2, Static = 4, Infinite = 8 };
    bool has(UInt16 bit) const { return (_state & bit) != 0; }
    void put(UInt16 bit, bool value) {
        _state = static_cast<UInt16>(value ? _state | bit : _state & ~bit);
    }

    UInt16 _state = Valid | Empty;
};

OSG_END_NAMESPACE
