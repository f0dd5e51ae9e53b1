#pragma once

#include "OSGVector.h"

#include <ostream>

OSG_BEGIN_NAMESPACE

/// The points x with normal . x = distance.
class OSG_BASE_DLLMAPPING Plane {
  public:
    Plane() = default;
    Plane(const Vec3f& normal, Real32 distance) : _normal(normal), _distance(distance) {
        _normal.normalize();
    }
    Plane(const Vec3f& normal, const Pnt3f& point) : _normal(normal) {
        _normal.normalize();
        _distance = _normal.dot(point);
    }
    Plane(const Pnt3f& p0, const Pnt3f& p1, const Pnt3f& p2)
        : Plane((p1 - p0).cross(p2 - p0), p0) {}

    void set(const Pnt3f& p0, const Pnt3f& p1, const Pnt3f& p2) { *this = Plane(p0, p1, p2); }
    void set(const Vec3f& normal, Real32 distance) { *this = Plane(normal, distance); }
    void set(const Vec3f& normal, const Pnt3f& point) { *this = Plane(normal, point); }

    const Vec3f& getNormal() const { return _normal; }
    Real32 getDistanceFromOrigin() const { return _distance; }
    /// Signed; positive on the side of the normal.
    Real32 distance(const Pnt3f& point) const { return _normal.dot(point) - _distance; }
    bool isInHalfSpace(const Pnt3f& point) const { return distance(point) >= 0.f; }
    bool isOnPlane(const Pnt3f& point) const { return osgabs(distance(point)) < Eps; }
    void offset(Real32 step) { _distance += step; }

  private:
    Vec3f _normal;
    Real32 _distance = 0.f;
};

inline std::ostream& operator<<(std::ostream& out, const Plane& plane) {
    return out << "Plane: " << plane.getNormal() << " | " << plane.getDistanceFromOrigin();
}

OSG_END_NAMESPACE
