#pragma once

#include "OSGVolume.h"

OSG_BEGIN_NAMESPACE

/// A ball.
class OSG_BASE_DLLMAPPING SphereVolume : public Volume {
  public:
    SphereVolume() = default;
    SphereVolume(const Pnt3f& center, Real32 radius) : _center(center), _radius(radius) {
        setEmpty(false);
    }

    void setValue(const Pnt3f& center, Real32 radius) { *this = SphereVolume(center, radius); }
    const Pnt3f& getCenter() const { return _center; }
    Real32 getRadius() const { return _radius; }

    void getCenter(Pnt3f& center) const override;
    Real32 getScalarVolume() const override;
    void getBounds(Pnt3f& low, Pnt3f& high) const override;
    void extendBy(const Pnt3f& point) override;
    void extendBy(const Volume& volume) override;
    bool intersect(const Pnt3f& point) const override;
    bool intersect(const Line& line) const override;
    bool intersect(const Line& line, Real32& enter, Real32& exit) const override;
    bool intersect(const Volume& volume) const override;
    bool isOnSurface(const Pnt3f& point) const override;
    void transform(const Matrix& matrix) override;

  private:
    void cover(const Pnt3f& center, Real32 radius);

    Pnt3f _center;
    Real32 _radius = 0.f;
};

OSG_END_NAMESPACE
