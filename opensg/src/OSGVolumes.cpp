#include "OpenSG/OSGBoxVolume.h"
#include "OpenSG/OSGDynamicVolume.h"

OSG_BEGIN_NAMESPACE

Volume::~Volume() = default;

Pnt3f Volume::getMin() const {
    Pnt3f low, high;
    getBounds(low, high);
    return low;
}

Pnt3f Volume::getMax() const {
    Pnt3f low, high;
    getBounds(low, high);
    return high;
}

// The box of any volume, as far as it can be asked for.
static BoxVolume boxOf(const Volume& volume) {
    Pnt3f low, high;
    volume.getBounds(low, high);
    BoxVolume box(low, high);
    box.setState(volume.getState());
    return box;
}

BoxVolume::BoxVolume(Real32 xmin, Real32 ymin, Real32 zmin, Real32 xmax, Real32 ymax, Real32 zmax)
    : BoxVolume(Pnt3f(xmin, ymin, zmin), Pnt3f(xmax, ymax, zmax)) {}

BoxVolume::BoxVolume(const Pnt3f& low, const Pnt3f& high) : _min(low), _max(high) {
    setEmpty(false);
}

void BoxVolume::setBounds(const Pnt3f& low, const Pnt3f& high) { *this = BoxVolume(low, high); }

void BoxVolume::getCenter(Pnt3f& center) const {
    center = isEmpty() ? Pnt3f()
                       : Pnt3f((_min[0] + _max[0]) * 0.5f, (_min[1] + _max[1]) * 0.5f,
                               (_min[2] + _max[2]) * 0.5f);
}

Real32 BoxVolume::getScalarVolume() const {
    return isEmpty() ? 0.f : (_max[0] - _min[0]) * (_max[1] - _min[1]) * (_max[2] - _min[2]);
}

void BoxVolume::getBounds(Pnt3f& low, Pnt3f& high) const {
    low = _min;
    high = _max;
}

void BoxVolume::extendBy(const Pnt3f& point) {
    if (isUntouchable())
        return;
    if (isEmpty()) {
        _min = _max = point;
        setEmpty(false);
        return;
    }
    for (UInt32 i = 0; i < 3; ++i) {
        if (point[i] < _min[i])
            _min[i] = point[i];
        if (point[i] > _max[i])
            _max[i] = point[i];
    }
}

void BoxVolume::extendBy(const Volume& volume) {
    if (isUntouchable() || !volume.isValid() || volume.isEmpty())
        return;
    if (isEmpty()) { // takes over the other one with all that is true of it
        *this = boxOf(volume);
        return;
    }
    Pnt3f low, high;
    volume.getBounds(low, high);
    extendBy(low);
    extendBy(high);
    if (volume.isInfinite())
        setInfinite(true);
}

bool BoxVolume::intersect(const Pnt3f& p) const {
    if (isEmpty())
        return false;
    for (UInt32 i = 0; i < 3; ++i) {
        if (!(_min[i] < p[i] && p[i] < _max[i]))
            return false;
    }
    return true;
}

bool BoxVolume::intersect(const Line& line) const { return line.intersect(*this); }

bool BoxVolume::intersect(const Line& line, Real32& enter, Real32& exit) const {
    return line.intersect(*this, enter, exit);
}

bool BoxVolume::intersect(const Volume& volume) const {
    if (isEmpty() || volume.isEmpty())
        return false;
    if (isInfinite() || volume.isInfinite())
        return true;
    const BoxVolume other = boxOf(volume);
    for (UInt32 i = 0; i < 3; ++i) {
        if (!(_min[i] <= other._max[i] && other._min[i] <= _max[i]))
            return false;
    }
    return true;
}

bool BoxVolume::isOnSurface(const Pnt3f& p) const {
    bool on_wall = false;
    for (UInt32 i = 0; i < 3; ++i) {
        if (p[i] < _min[i] - Eps || p[i] > _max[i] + Eps)
            return false;
        on_wall |= osgabs(p[i] - _min[i]) <= Eps || osgabs(p[i] - _max[i]) <= Eps;
    }
    return on_wall && !isEmpty();
}

void BoxVolume::transform(const Matrix& matrix) {
    if (isEmpty())
        return;
    Pnt3f low, high;
    for (UInt32 row = 0; row < 3; ++row) {
        // The order of the sum decides its last bit.
        low[row] = high[row] = matrix[3][row];
        for (UInt32 column = 0; column < 3; ++column) {
            const Real32 a = matrix[column][row] * _min[column];
            const Real32 b = matrix[column][row] * _max[column];
            low[row] += osgMin(a, b);
            high[row] += osgMax(a, b);
        }
    }
    _min = low;
    _max = high;
}

void SphereVolume::getCenter(Pnt3f& center) const { center = isEmpty() ? Pnt3f() : _center; }

Real32 SphereVolume::getScalarVolume() const {
    return isEmpty() ? 0.f : Real32(4.0 / 3.0 * Pi) * _radius * _radius * _radius;
}

void SphereVolume::getBounds(Pnt3f& low, Pnt3f& high) const {
    const Vec3f reach(_radius, _radius, _radius);
    low = _center - reach;
    high = _center + reach;
}

void SphereVolume::cover(const Pnt3f& center, Real32 radius) {
    if (isEmpty()) {
        _center = center;
        _radius = radius;
        setEmpty(false);
        return;
    }
    const Vec3f apart = center - _center;
    const Real32 distance = apart.length();
    if (!(distance + radius > _radius))
        return;
    if (distance + _radius <= radius) { // the other one holds this one
        _center = center;
        _radius = radius;
        return;
    }
    const Real32 grown = (distance + radius + _radius) * 0.5f;
    _center += apart * ((grown - _radius) / distance);
    _radius = grown;
}

void SphereVolume::extendBy(const Pnt3f& point) {
    if (!isUntouchable())
        cover(point, 0.f);
}

void SphereVolume::extendBy(const Volume& volume) {
    if (isUntouchable() || !volume.isValid() || volume.isEmpty())
        return;
    if (volume.isInfinite()) {
        setInfinite(true);
        return;
    }
    Pnt3f low, high;
    volume.getBounds(low, high);
    cover(low + (high - low) * 0.5f, (high - low).length() * 0.5f);
}

bool SphereVolume::intersect(const Pnt3f& p) const {
    return !isEmpty() && (p - _center).squareLength() < _radius * _radius;
}

bool SphereVolume::intersect(const Line& line) const {
    Real32 enter, exit;
    return intersect(line, enter, exit);
}

bool SphereVolume::intersect(const Line& line, Real32& enter, Real32& exit) const {
    const Real32 middle = (_center - line.getPosition()).dot(line.getDirection());
    const Real32 miss = line.distance(_center);
    if (isEmpty() || !(miss <= _radius))
        return false;
    const Real32 half = std::sqrt(_radius * _radius - miss * miss);
    enter = osgMax(0.f, middle - half);
    exit = middle + half;
    return exit >= 0.f;
}

bool SphereVolume::intersect(const Volume& volume) const {
    if (isEmpty() || volume.isEmpty())
        return false;
    if (isInfinite() || volume.isInfinite())
        return true;
    Pnt3f low, high;
    volume.getBounds(low, high);
    Pnt3f nearest;
    for (UInt32 i = 0; i < 3; ++i)
        nearest[i] = osgMax(low[i], osgMin(high[i], _center[i]));
    return (nearest - _center).squareLength() <= _radius * _radius;
}

bool SphereVolume::isOnSurface(const Pnt3f& p) const {
    return !isEmpty() && osgabs((p - _center).length() - _radius) <= Eps;
}

void SphereVolume::transform(const Matrix& matrix) {
    if (isEmpty() || isInfinite())
        return;
    Real32 largest = 0.f;
    for (UInt32 c = 0; c < 3; ++c) {
        largest = osgMax(largest, Vec3f(matrix[c][0], matrix[c][1], matrix[c][2]).length());
    }
    matrix.multMatrixPnt(_center);
    _radius *= largest;
}

Volume& DynamicVolume::getInstance() {
    if (_type == SPHERE_VOLUME)
        return _sphere;
    return _box;
}

const Volume& DynamicVolume::getInstance() const {
    if (_type == SPHERE_VOLUME)
        return _sphere;
    return _box;
}

void DynamicVolume::morphToType(Type type) {
    if (type == _type)
        return;
    DynamicVolume morphed(type);
    morphed.extendBy(getInstance());
    morphed.getInstance().setState(getInstance().getState());
    morphed.instanceChanged();
    *this = morphed;
}

void DynamicVolume::extendBy(const Pnt3f& point) {
    getInstance().extendBy(point);
    instanceChanged();
}

void DynamicVolume::extendBy(const Volume& volume) {
    getInstance().extendBy(volume);
    instanceChanged();
}

void DynamicVolume::transform(const Matrix& matrix) {
    getInstance().transform(matrix);
    instanceChanged();
}

bool DynamicVolume::operator==(const DynamicVolume& other) const {
    Pnt3f low, high, other_low, other_high;
    getBounds(low, high);
    other.getBounds(other_low, other_high);
    return _type == other._type && getState() == other.getState() && low == other_low &&
           high == other_high;
}

std::ostream& operator<<(std::ostream& out, const DynamicVolume& volume) {
    if (volume.isEmpty())
        return out << "empty volume";
    return out << "volume (" << volume.getMin() << ") to (" << volume.getMax() << ")";
}

bool Line::intersect(const BoxVolume& box) const {
    Real32 enter, exit;
    return intersect(box, enter, exit);
}

bool Line::intersect(const BoxVolume& box, Real32& enter, Real32& exit) const {
    Real32 first = 0.f;
    Real32 last = Inf;
    for (UInt32 i = 0; i < 3; ++i) {
        const Real32 low = box.getMin()[i] - _position[i];
        const Real32 high = box.getMax()[i] - _position[i];
        if (osgabs(_direction[i]) < Eps) { // along the slab: inside or never
            if (low > Eps || high < -Eps)
                return false;
            continue;
        }
        const Real32 a = low / _direction[i];
        const Real32 b = high / _direction[i];
        first = osgMax(first, osgMin(a, b));
        last = osgMin(last, osgMax(a, b));
    }
    if (!(first <= last + Eps))
        return false;
    enter = first;
    exit = last;
    return true;
}

bool Line::intersect(const Pnt3f& v0, const Pnt3f& v1, const Pnt3f& v2, Real32& t,
                     Vec3f* normal) const {
    const Vec3f edge1 = v1 - v0;
    const Vec3f edge2 = v2 - v0;
    const Vec3f p = _direction.cross(edge2);
    const Real32 determinant = edge1.dot(p);
    if (!(osgabs(determinant) > 1e-10f))
        return false;
    const Vec3f to_position = _position - v0;
    const Real32 u = to_position.dot(p) / determinant;
    if (!(u >= 0.f && u <= 1.f))
        return false;
    const Vec3f q = to_position.cross(edge1);
    const Real32 v = _direction.dot(q) / determinant;
    if (!(v >= 0.f && u + v <= 1.f))
        return false;
    t = edge2.dot(q) / determinant;
    if (normal != nullptr) {
        *normal = edge1.cross(edge2);
        normal->normalize();
    }
    return true;
}

OSG_END_NAMESPACE
