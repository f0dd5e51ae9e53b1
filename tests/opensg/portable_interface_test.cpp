// What the scene graph must not offer, because its interface has no such thing: this file compiles
// only as long as each of these is rejected.

#include "tests/support/test.h"

#include <OpenSG/OSGChangeList.h>

#include <type_traits>

namespace {

using namespace osg;

/// Whether an expression over values of these types compiles.
template <class... Values, class Expression> constexpr bool accepts(Expression) {
    return std::is_invocable_v<Expression, Values...>;
}
#define EXPRESSION(CODE) [](auto&& v, auto&&... w) -> decltype((void)(CODE), (void)sizeof...(w)) {}

#define REJECTS(TYPE, ...) static_assert(!accepts<TYPE>(EXPRESSION(__VA_ARGS__)))

template <class T, class = void> struct has_ptr : std::false_type {};
template <class T> struct has_ptr<T, std::void_t<typename T::Ptr>> : std::true_type {};
template <class T, class = void> struct has_ptr_type : std::false_type {};
template <class T> struct has_ptr_type<T, std::void_t<typename T::PtrType>> : std::true_type {};

static_assert(has_ptr<Node>::value && has_ptr<Group>::value && has_ptr<ChunkMaterial>::value);
static_assert(!has_ptr_type<Node>::value && !has_ptr_type<Group>::value);
static_assert(has_ptr_type<GeoPositions3f>::value && has_ptr_type<Name>::value);
static_assert(!has_ptr<GeoPositions3f>::value && !has_ptr<GeoPositions>::value);
static_assert(!has_ptr<Name>::value && !has_ptr<Attachment>::value && !has_ptr<NodeCore>::value);

static_assert(accepts<Vec3f&>(EXPRESSION(v /= 2.f)) && accepts<Pnt3f&>(EXPRESSION(v = Pnt3f())));
static_assert(!accepts<Vec3f>(EXPRESSION(v / 2.f)) && !accepts<Pnt3f>(EXPRESSION(v / 2.f)));
REJECTS(Pnt3f&, v = Vec3f());
static_assert(!std::is_constructible_v<AttachmentContainerPtr, StateChunkPtr> &&
              !std::is_constructible_v<AttachmentContainerPtr, NamePtr>);
REJECTS(StateChunkPtr, setName(v, "name"));
REJECTS(GeoPositions3fPtr, getName(v));
static_assert(!accepts<NodeRefPtr>(EXPRESSION(*v)) &&
              accepts<NodeRefPtr>(EXPRESSION(v->getCore())));
REJECTS(CNodePtr, v.getCore());
static_assert(!std::is_convertible_v<decltype(CNodePtr().getNode()), NodePtr>);
REJECTS(CNodePtr, getName(v.getNode()));
REJECTS(GeoPositionsPtr, v->insertValue(Pnt3f(), 0));
REJECTS(CubeTextureChunkPtr, v->setPosZImage(Image::create()));
REJECTS(ComponentTransformPtr, v->setMatrix(Matrix()));
REJECTS(NodePtr, v->getPtr());
static_assert(accepts<GeometryPtr>(EXPRESSION(v->getPtr())));
REJECTS(GroupPtr, v->executeSync(*v, FieldBits::AllFields));
REJECTS(GroupPtr, v->getUntypedPtr());
REJECTS(SFInt32, v.equals(v));
static_assert(!accepts<ChangeList&>(EXPRESSION(v.apply(true))) &&
              accepts<ChangeList&>(EXPRESSION(v.apply())));
REJECTS(Real16, v.ofBits(UInt16()));
REJECTS(Matrix4d&,
        v.setTransform(Vec3d(), QuaternionBase<Real64>(), Vec3d(), QuaternionBase<Real64>()));

// Constants of another file are none for the compiler.
template <class T, BitVector = T::TypesFieldMask> std::true_type isConstantMask(int);
template <class T> std::false_type isConstantMask(...);
template <class T, UInt16 = T::MapPosition> std::true_type isConstantBit(int);
template <class T> std::false_type isConstantBit(...);
static_assert(!decltype(isConstantMask<Geometry>(0))::value);
static_assert(!decltype(isConstantBit<Geometry>(0))::value);

} // namespace
