#pragma once

#include "OSGBoxShape.h"
#include "OSGSphereVolume.h"

#include <ostream>

OSG_BEGIN_NAMESPACE

/// A volume whose shape is chosen at run time: a box or a ball. Its own state follows that of the
/// instance inside; a state set on the outside is lost with the next change of the instance.
class OSG_BASE_DLLMAPPING DynamicVolume : public Volume {
  public:
    enum Type { BOX_VOLUME, SPHERE_VOLUME };

    explicit DynamicVolume(Type type = BOX_VOLUME) : _type(type) {}

    Volume& getInstance();
    const Volume& getInstance() const;
    /// Takes the instance's state over to the outside.
    void instanceChanged() { setState(getInstance().getState()); }

    Type getType() const { return _type; }
    /// Starts anew with an empty volume of this shape.
    void setVolumeType(Type type) { *this = DynamicVolume(type); }
    /// Keeps what it encloses.
    void morphToType(Type type);

    void getCenter(Pnt3f& center) const override { getInstance().getCenter(center); }
    Real32 getScalarVolume() const override { return getInstance().getScalarVolume(); }
    void getBounds(Pnt3f& low, Pnt3f& high) const override { getInstance().getBounds(low, high); }
    void extendBy(const Pnt3f& point) override;
    void extendBy(const Volume& volume) override;
    bool intersect(const Pnt3f& point) const override { return getInstance().intersect(point); }
    bool intersect(const Line& line) const override { return getInstance().intersect(line); }
    bool intersect(const Line& line, Real32& enter, Real32& exit) const override {
        return getInstance().intersect(line, enter, exit);
    }
    bool intersect(const Volume& volume) const override { return getInstance().intersect(volume); }
    bool isOnSurface(const Pnt3f& point) const override { return getInstance().isOnSurface(point); }
    void transform(const Matrix& matrix) override;

    bool operator==(const DynamicVolume& other) const;

  private:
    Type _type;
    shapes::BoxVolume _box; ///< the instance of a BOX_VOLUME
    SphereVolume _sphere;   ///< the instance of a SPHERE_VOLUME
};

OSG_BASE_DLLMAPPING std::ostream& operator<<(std::ostream& out, const DynamicVolume& volume);

OSG_END_NAMESPACE
