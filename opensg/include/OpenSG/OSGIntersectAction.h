#pragma once

// The first hit of a ray with a scene.
//
// While a function runs, line, distances and hit parameter are those of the frame in which the
// node's core lives: entering a transform maps the line by the inverse of its matrix and scales
// the distances by the length of the mapped direction, leaving it puts both back. So parameters
// come out in the units of the line that was set, and hit points are points of that line.
//
// Defaults: groups, transforms, switches pass over what the line misses by its volume, as far as
// that is valid; switches show their choice; geometries are hit by their triangles, from both
// sides (Geometry::intersect). What a matrix without inverse flattens cannot be hit.

#include "OSGAction.h"
#include "OSGLine.h"

OSG_BEGIN_NAMESPACE

class OSG_BASE_DLLMAPPING IntersectAction : public Action {
  public:
    /// On the heap; the caller deletes it. A copy of the prototype if there is one. Without a line
    /// the maximal distance is 0.
    static IntersectAction* create();
    static IntersectAction* create(const Line& line, Real32 maxdist = Inf);
    /// Not owned.
    static void setPrototype(IntersectAction* prototype);
    static IntersectAction* getPrototype();

    IntersectAction();
    IntersectAction(const IntersectAction&) = default;
    IntersectAction& operator=(const IntersectAction&) = default;
    ~IntersectAction() override;

    static void registerEnterDefault(const FieldContainerType& type, const Functor& function);
    static void registerLeaveDefault(const FieldContainerType& type, const Functor& function);

    void setLine(const Line& line, Real32 maxdist = Inf);
    const Line& getLine() const { return _line; }
    Real32 getMaxDist() const { return _maxDist; }

    bool didHit() const { return _hit; }
    /// -1 before the first apply.
    Real32 getHitT() const { return _hitT; }
    Pnt3f getHitPoint() const;
    /// As setHit got it: for a geometry the unit normal in the geometry's own frame. The inverse
    /// transpose of the hit node's to-world matrix brings it to the world.
    const Vec3f& getHitNormal() const { return _hitNormal; }
    NodePtr getHitObject() const { return _hitObject; }
    Int32 getHitTriangle() const { return _hitTriangle; }

    /// Enters a hit, the parameter in the current frame. One behind the start, behind the
    /// present hit or beyond the maximal distance is ignored, and so is NaN; one at the present
    /// hit's place replaces it.
    void setHit(Real32 t, NodePtr object, Int32 triangle, Vec3f& normal);
    /// For a volume between these parameters: Skip if nothing in it can be the hit.
    ResultE setEnterLeave(Real32 enter, Real32 leave) const;
    /// Multiplies the hit's parameter and the maximal distance.
    void scale(Real32 factor);

  protected:
    void start() override;

  private:
    /// A transform that the walk is below.
    struct frame {
        NodePtr node;
        Line line; ///< the line and the distances above the transform
        Real32 maxDist;
        Real32 hitT;
        UInt64 hits;   ///< hits entered until then
        Real32 length; ///< of the mapped direction
    };

    bool enterFrame(const Matrix& matrix);
    void leaveFrame();
    static ResultE enterGroup(CNodePtr& node, Action* action);
    static ResultE enterSwitch(CNodePtr& node, Action* action);
    static ResultE enterTransform(CNodePtr& node, Action* action);
    static ResultE leaveTransform(CNodePtr& node, Action* action);
    static struct intersect_defaults& defaults();
    friend struct intersect_defaults;

    Line _line;
    Real32 _maxDist = 0.f;
    std::vector<frame> _frames;
    bool _hit = false;
    UInt64 _hits = 0; ///< entered since the last start
    Real32 _hitT = -1.f;
    NodePtr _hitObject;
    Int32 _hitTriangle = -1;
    Vec3f _hitNormal;
};

OSG_END_NAMESPACE
