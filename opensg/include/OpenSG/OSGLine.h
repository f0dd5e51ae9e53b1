#pragma once

#include "OSGVector.h"

OSG_BEGIN_NAMESPACE

namespace shapes {
class BoxVolume;
}

/// A ray: position and direction of length 1. A zero direction stays zero.
class OSG_BASE_DLLMAPPING Line {
  public:
    Line() = default;
    Line(const Pnt3f& p0, const Pnt3f& p1) : Line(p0, p1 - p0) {}
    Line(const Pnt3f& position, const Vec3f& direction)
        : _position(position), _direction(direction) {
        _direction.normalize();
    }

    void setValue(const Pnt3f& p0, const Pnt3f& p1) { *this = Line(p0, p1); }
    void setValue(const Pnt3f& position, const Vec3f& direction) {
        *this = Line(position, direction);
    }

    const Pnt3f& getPosition() const { return _position; }
    const Vec3f& getDirection() const { return _direction; }

    Pnt3f getClosestPoint(const Pnt3f& point) const {
        return _position + _direction * (point - _position).dot(_direction);
    }
    Real32 distance(const Pnt3f& point) const { return (point - getClosestPoint(point)).length(); }

    /// The part of the ray inside the box, from 0 on.
    bool intersect(const shapes::BoxVolume& box, Real32& enter, Real32& exit) const;
    bool intersect(const shapes::BoxVolume& box) const;
    /// The triangle from both sides; t may be negative. `normal` is that of the winding.
    ///
    /// method: "Fast, Minimum Storage Ray/Triangle Intersection", T. Moeller, B. Trumbore, 1997
    bool intersect(const Pnt3f& v0, const Pnt3f& v1, const Pnt3f& v2, Real32& t,
                   Vec3f* normal = nullptr) const;

  private:
    Pnt3f _position;
    Vec3f _direction;
};

OSG_END_NAMESPACE
