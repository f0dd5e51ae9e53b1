#pragma once

// Calls as values: a function, a method of an object, or a method of the container that the first
// argument points to, to be kept in tables and made by the makers below.
//
//     osgTypedFunctionFunctor2CPtrRef<Action::ResultE, CNodePtr, Action*>(function)
//     osgTypedMethodFunctor2ObjPtrCPtrRef<Action::ResultE, Tool, CNodePtr, Action*>(&tool,
//     &Tool::at) osgTypedMethodFunctor2BaseCPtrRef<Action::ResultE, GeometryPtr, CNodePtr,
//     Action*>(
//         &Geometry::intersect)

#include "OSGNode.h"

#include <functional>
#include <utility>

OSG_BEGIN_NAMESPACE

/// A call with one pointer by reference. Without a target it does nothing and gives R().
template <class R, class PtrT> class TypedFunctor1Base {
  public:
    TypedFunctor1Base() = default;
    explicit TypedFunctor1Base(std::function<R(PtrT&)> target) : _target(std::move(target)) {}
    R call(PtrT& pointer) const { return _target ? _target(pointer) : R(); }

  private:
    std::function<R(PtrT&)> _target;
};

/// A call with one pointer by reference and one more argument.
template <class R, class PtrT, class ArgT> class TypedFunctor2Base {
  public:
    TypedFunctor2Base() = default;
    explicit TypedFunctor2Base(std::function<R(PtrT&, ArgT)> target) : _target(std::move(target)) {}
    R call(PtrT& pointer, ArgT argument) const {
        return _target ? _target(pointer, argument) : R();
    }

  private:
    std::function<R(PtrT&, ArgT)> _target;
};

template <class R, class PtrT>
TypedFunctor1Base<R, PtrT> osgTypedFunctionFunctor1CPtrRef(R (*function)(PtrT&)) {
    return TypedFunctor1Base<R, PtrT>(function);
}

template <class R, class Object, class PtrT>
TypedFunctor1Base<R, PtrT> osgTypedMethodFunctor1ObjPtrCPtrRef(Object* object,
                                                               R (Object::*method)(PtrT&)) {
    return TypedFunctor1Base<R, PtrT>(
        [object, method](PtrT& pointer) { return (object->*method)(pointer); });
}

template <class R, class PtrT, class ArgT>
TypedFunctor2Base<R, PtrT, ArgT> osgTypedFunctionFunctor2CPtrRef(R (*function)(PtrT&, ArgT)) {
    return TypedFunctor2Base<R, PtrT, ArgT>(function);
}

template <class R, class Object, class PtrT, class ArgT>
TypedFunctor2Base<R, PtrT, ArgT>
osgTypedMethodFunctor2ObjPtrCPtrRef(Object* object, R (Object::*method)(PtrT&, ArgT)) {
    return TypedFunctor2Base<R, PtrT, ArgT>([object, method](PtrT& pointer, ArgT argument) {
        return (object->*method)(pointer, argument);
    });
}

/// A method of the core, which is passed over where the core is of another class.
template <class R, class CorePtr, class PtrT, class ArgT>
TypedFunctor2Base<R, PtrT, ArgT>
osgTypedMethodFunctor2BaseCPtrRef(R (CorePtr::StoredObjectType::*method)(ArgT)) {
    return TypedFunctor2Base<R, PtrT, ArgT>([method](PtrT& pointer, ArgT argument) {
        const CorePtr core = CorePtr::dcast(NodePtr(pointer)->getCore());
        return core != NullFC ? ((*core).*method)(argument) : R();
    });
}

OSG_END_NAMESPACE
