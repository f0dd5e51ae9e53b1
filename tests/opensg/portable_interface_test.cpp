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
static_assert(!accepts<Pnt3f&>(EXPRESSION(v = Vec3f())));
static_assert(!std::is_constructible_v<AttachmentContainerPtr, StateChunkPtr> &&
              !std::is_constructible_v<AttachmentContainerPtr, NamePtr>);
static_assert(!accepts<StateChunkPtr>(EXPRESSION(setName(v, "name"))));
static_assert(!accepts<GeoPositions3fPtr>(EXPRESSION(getName(v))));
static_assert(!accepts<NodeRefPtr>(EXPRESSION(*v)) &&
              accepts<NodeRefPtr>(EXPRESSION(v->getCore())));
static_assert(!accepts<CNodePtr>(EXPRESSION(v.getCore())));
static_assert(!std::is_convertible_v<decltype(CNodePtr().getNode()), NodePtr>);
static_assert(!accepts<CNodePtr>(EXPRESSION(getName(v.getNode()))));
static_assert(!accepts<GeoPositionsPtr>(EXPRESSION(v->insertValue(Pnt3f(), 0))));
static_assert(!accepts<CubeTextureChunkPtr>(EXPRESSION(v->setPosZImage(Image::create()))));
static_assert(!accepts<ComponentTransformPtr>(EXPRESSION(v->setMatrix(Matrix()))));
static_assert(!accepts<NodePtr>(EXPRESSION(v->getPtr())));
static_assert(accepts<GeometryPtr>(EXPRESSION(v->getPtr())));
static_assert(!accepts<GroupPtr>(EXPRESSION(v->executeSync(*v, FieldBits::AllFields))));
static_assert(!accepts<GroupPtr>(EXPRESSION(v->getUntypedPtr())));
static_assert(!accepts<SFInt32>(EXPRESSION(v.equals(v))));
static_assert(!accepts<ChangeList&>(EXPRESSION(v.apply(true))) &&
              accepts<ChangeList&>(EXPRESSION(v.apply())));
static_assert(!accepts<Real16>(EXPRESSION(v.ofBits(UInt16()))));
static_assert(!accepts<Matrix4d&>(EXPRESSION(v.setTransform(Vec3d(), QuaternionBase<Real64>(),
                                                            Vec3d(), QuaternionBase<Real64>()))));

// Constants of another file are none for the compiler.
template <class T, BitVector = T::TypesFieldMask> std::true_type isConstantMask(int);
template <class T> std::false_type isConstantMask(...);
template <class T, UInt16 = T::MapPosition> std::true_type isConstantBit(int);
template <class T> std::false_type isConstantBit(...);
static_assert(!decltype(isConstantMask<Geometry>(0))::value);
static_assert(!decltype(isConstantBit<Geometry>(0))::value);

} // namespace
