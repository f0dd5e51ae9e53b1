#pragma once

#include "OSGNode.h"

OSG_BEGIN_NAMESPACE

class Drawable;
typedef FCPtr<NodeCorePtr, Drawable> DrawablePtr;
typedef RefPtr<DrawablePtr> DrawableRefPtr;

/// Core that puts something on the screen.
class OSG_SYSTEMLIB_DLLMAPPING Drawable : public NodeCore {
    OSG_CONTAINER_DECL_ABSTRACT(Drawable, NodeCore, DrawablePtr)
  protected:
    Drawable() = default;
    Drawable(const Drawable&) = default;
};

OSG_END_NAMESPACE
