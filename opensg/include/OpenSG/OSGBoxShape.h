#pragma once

#include "OSGVolume.h"

OSG_BEGIN_NAMESPACE

// Headers that only use boxes do not offer them: OSGBoxVolume.h gives the class its name in osg.
namespace shapes {

/// A box along the axes.
class OSG_BASE_DLLMAPPING BoxVolume : public Volume {
  public:
    BoxVolume() = default;
    BoxVolume(Real32 xmin, Real32 ymin, Real32 zmin, Real32 xmax, Real32 ymax, Real32 zmax);
    BoxVolume(const Pnt3f& low, const Pnt3f& high);

    void setBounds(const Pnt3f& low, const Pnt3f& high);
    const Pnt3f& getMin() const { return _min; }
    const Pnt3f& getMax() const { return _max; }
    void getSize(Vec3f& size) const { size = _max - _min; }

    void getCenter(Pnt3f& center) const override;
    Real32 getScalarVolume() const override;
    void getBounds(Pnt3f& low, Pnt3f& high) const override;
    void extendBy(const Pnt3f& point) override;
    /// An empty box takes over the other volume with its state; an infinite one makes it infinite.
    void extendBy(const Volume& volume) override;
    /// Strictly inside.
    bool intersect(const Pnt3f& point) const override;
    bool intersect(const Line& line) const override;
    bool intersect(const Line& line, Real32& enter, Real32& exit) const override;
    /// Touching counts.
    bool intersect(const Volume& volume) const override;
    bool isOnSurface(const Pnt3f& point) const override;
    /// Becomes the box of the eight turned corners: per coordinate the translation, plus for x, y,
    /// z in this order the smaller (larger) product. An infinite box moves and stays infinite.
    void transform(const Matrix& matrix) override;

  private:
    Pnt3f _min;
    Pnt3f _max;
};

} // namespace shapes

OSG_END_NAMESPACE
