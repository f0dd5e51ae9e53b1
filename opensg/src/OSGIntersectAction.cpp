#include "OpenSG/OSGIntersectAction.h"

#include "OSGActionDefaults.h"
#include "OpenSG/OSGComponentTransform.h"
#include "OpenSG/OSGGeometry.h"
#include "OpenSG/OSGSwitch.h"
#include "OpenSG/OSGTriangleIterator.h"

#include <cmath>

OSG_BEGIN_NAMESPACE

namespace {

IntersectAction* prototype = nullptr;

bool isMissed(const Volume& volume, const Line& line) {
    return volume.isValid() && !volume.isInfinite() && !volume.intersect(line);
}

} // namespace

struct intersect_defaults {
    action_defaults table;

    intersect_defaults() {
        const auto functor = [](Action::ResultE (*function)(CNodePtr&, Action*)) {
            return osgTypedFunctionFunctor2CPtrRef<Action::ResultE, CNodePtr, Action*>(function);
        };
        table.setEnter(Group::getClassType(), functor(&IntersectAction::enterGroup));
        table.setEnter(Switch::getClassType(), functor(&IntersectAction::enterSwitch));
        for (const FieldContainerType* type :
             {&Transform::getClassType(), &ComponentTransform::getClassType()}) {
            table.setEnter(*type, functor(&IntersectAction::enterTransform));
            table.setLeave(*type, functor(&IntersectAction::leaveTransform));
        }
        table.setEnter(
            Geometry::getClassType(),
            osgTypedMethodFunctor2BaseCPtrRef<Action::ResultE, GeometryPtr, CNodePtr, Action*>(
                &Geometry::intersect));
    }
};

intersect_defaults& IntersectAction::defaults() {
    static intersect_defaults& all = *new intersect_defaults;
    return all;
}

IntersectAction::IntersectAction()
    : Action(defaults().table.enterCopy(), defaults().table.leaveCopy()) {}
IntersectAction::~IntersectAction() = default;

IntersectAction* IntersectAction::create() {
    return prototype != nullptr ? new IntersectAction(*prototype) : new IntersectAction;
}

IntersectAction* IntersectAction::create(const Line& line, Real32 maxdist) {
    IntersectAction* action = create();
    action->setLine(line, maxdist);
    return action;
}

void IntersectAction::setPrototype(IntersectAction* action) { prototype = action; }
IntersectAction* IntersectAction::getPrototype() { return prototype; }

void IntersectAction::registerEnterDefault(const FieldContainerType& type,
                                           const Functor& function) {
    defaults().table.setEnter(type, function);
}

void IntersectAction::registerLeaveDefault(const FieldContainerType& type,
                                           const Functor& function) {
    defaults().table.setLeave(type, function);
}

void IntersectAction::setLine(const Line& line, Real32 maxdist) {
    _line = line;
    _maxDist = maxdist;
}

void IntersectAction::start() {
    if (!_frames.empty()) { // a function threw in the middle of the last walk
        setLine(_frames.front().line, _frames.front().maxDist);
        _frames.clear();
    }
    _hit = false;
    _hits = 0;
    _hitT = Inf;
    _hitObject = NullFC;
    _hitTriangle = -1;
    _hitNormal = Vec3f();
}

Pnt3f IntersectAction::getHitPoint() const {
    Real32 t = _hitT;
    for (const frame& f : _frames)
        t /= f.length;
    const Line& line = _frames.empty() ? _line : _frames.front().line;
    return line.getPosition() + line.getDirection() * t;
}

void IntersectAction::setHit(Real32 t, NodePtr object, Int32 triangle, Vec3f& normal) {
    if (!(t >= 0.f && t <= _hitT && t <= _maxDist)) // none of it holds for NaN
        return;
    _hit = true;
    ++_hits;
    _hitT = t;
    _hitObject = object;
    _hitTriangle = triangle;
    _hitNormal = normal;
}

Action::ResultE IntersectAction::setEnterLeave(Real32 enter, Real32 leave) const {
    return leave < 0.f || enter > _maxDist || (_hit && _hitT < enter) ? Skip : Continue;
}

void IntersectAction::scale(Real32 factor) {
    _hitT *= factor;
    _maxDist *= factor;
}

bool IntersectAction::enterFrame(const Matrix& matrix) {
    Matrix inverse;
    if (!matrix.inverse(inverse))
        return false;
    Pnt3f position;
    Vec3f direction;
    inverse.multFullMatrixPnt(_line.getPosition(), position);
    inverse.multMatrixVec(_line.getDirection(), direction);
    const Real32 length = direction.length();
    if (!(length > 0.f) || !std::isfinite(length))
        return false;
    _frames.push_back({getActNode(), _line, _maxDist, _hitT, _hits, length});
    direction /= length; // Line itself leaves short directions alone
    _line = Line(position, direction);
    scale(length);
    return true;
}

void IntersectAction::leaveFrame() {
    // Another enter function may have taken the transform's place and made no frame.
    if (_frames.empty() || _frames.back().node != getActNode())
        return;
    const frame& f = _frames.back();
    _line = f.line;
    _maxDist = f.maxDist;
    _hitT = _hits != f.hits ? _hitT / f.length : f.hitT;
    _frames.pop_back();
}

Action::ResultE IntersectAction::enterGroup(CNodePtr& node, Action* action) {
    const auto* self = dynamic_cast<IntersectAction*>(action);
    const bool missed = self != nullptr && isMissed(node.getNode()->getVolume(), self->getLine());
    return missed ? Skip : Continue;
}

Action::ResultE IntersectAction::enterSwitch(CNodePtr& node, Action* action) {
    const Int32 choice = SwitchPtr::dcast(NodePtr(node)->getCore())->getChoice();
    if (choice == Switch::ALL)
        return Continue;
    if (choice < 0 || static_cast<UInt32>(choice) >= action->getNNodes())
        return Skip;
    action->addNode(action->getNode(static_cast<UInt32>(choice)));
    return Continue;
}

Action::ResultE IntersectAction::enterTransform(CNodePtr& node, Action* action) {
    auto* self = dynamic_cast<IntersectAction*>(action);
    if (self == nullptr || enterGroup(node, action) == Skip)
        return self != nullptr ? Skip : Continue;
    const TransformPtr transform = TransformPtr::dcast(NodePtr(node)->getCore());
    return self->enterFrame(transform->getMatrix()) ? Continue : Skip;
}

Action::ResultE IntersectAction::leaveTransform(CNodePtr&, Action* action) {
    if (auto* self = dynamic_cast<IntersectAction*>(action))
        self->leaveFrame();
    return Continue;
}

Action::ResultE Geometry::intersect(Action* action) {
    auto* picking = dynamic_cast<IntersectAction*>(action);
    if (picking == nullptr)
        return Action::Continue;
    const NodePtr node = picking->getActNode();
    if (isMissed(node->editVolume(true), picking->getLine()))
        return Action::Skip;
    if (getPositions() == NullFC)
        return Action::Continue;
    for (TriangleIterator it = beginTriangles(); !it.isAtEnd(); ++it) {
        Real32 t;
        Vec3f normal;
        if (picking->getLine().intersect(it.getPosition(0), it.getPosition(1), it.getPosition(2), t,
                                         &normal)) {
            picking->setHit(t, node, it.getIndex(), normal);
        }
    }
    return Action::Continue;
}

OSG_END_NAMESPACE
