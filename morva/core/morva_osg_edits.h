#pragma once

// Edits that other aspects can take over.
//
// Each aspect has copies of its own of all containers, and a change gets from one to another by the
// change list of the thread that made it. endEditCP() enters it there, field by field; the setters
// of nodes and cores enter nothing by themselves. A change that a caller may see is therefore made
// by one of these:
//
//     addChildTo(parent, child)       the child comes last, off the parent that it had
//     takeChildOff(parent, index)     it is destroyed if nobody else holds it
//     giveCore(node, core), giveMaterial(geometry, material)
//     const open_edit edit(container, fields);   for as long as it lives
//     const geometry_edit edit(geometry);        the same, for its properties too
//
// They enter both ends of a link, and a few lines per edit, however many vertices change. What
// nobody else can reach yet (the core of a geoset, say) needs no edit before it is handed out. Each
// works in the calling thread's aspect.

#include <array>
#include <new>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

namespace morva::osg {

// Links are taken by value: an argument may be an entry of a list that changes.

/// Moves a child to the end of a parent's list. Neither may be null.
void addChildTo(const ::osg::NodePtr& parent, ::osg::NodePtr child);

/// Takes child number `index` off its parent.
void takeChildOff(const ::osg::NodePtr& parent, ::osg::UInt32 index);

/// Gives a node another core; null takes it away.
void giveCore(const ::osg::NodePtr& node, ::osg::NodeCorePtr core);

/// Gives a geometry another material; null takes it away.
void giveMaterial(const ::osg::GeometryPtr& geometry, ::osg::MaterialPtr material);

/// Keeps an edit open for as long as it lives, whatever is thrown.
template <typename Ptr> class open_edit {
  public:
    explicit open_edit(const Ptr& edited, ::osg::BitVector changed = ::osg::FieldBits::AllFields)
        : container_(edited), fields_(changed) {
        ::osg::beginEditCP(container_, fields_);
    }
    open_edit(const open_edit&) = delete;
    open_edit& operator=(const open_edit&) = delete;
    ~open_edit() {
        try {
            ::osg::endEditCP(container_, fields_);
        } catch (const std::bad_alloc&) {
            // No room for a line in the list: this aspect is right, others learn of it later.
        }
    }

  private:
    Ptr container_;
    ::osg::BitVector fields_;
};

/// An edit of a geometry in all its fields, and of the properties that come to it and leave it
/// meanwhile. Properties that stay are not looked at: who writes into them edits them.
class geometry_edit {
  public:
    explicit geometry_edit(const ::osg::GeometryPtr& edited);
    geometry_edit(const geometry_edit&) = delete;
    geometry_edit& operator=(const geometry_edit&) = delete;
    ~geometry_edit();

  private:
    open_edit<::osg::GeometryPtr> whole_;
    ::osg::GeometryPtr geometry_;
    /// Types, lengths, positions, normals, colours, coordinate sets, indices; null where absent.
    std::array<::osg::RefPtr<::osg::AttachmentPtr>, 15> before_;
};

/// Enters a node as changed in all fields: it was filled in this thread without edits.
inline void reportChange(const ::osg::NodePtr& node) { const open_edit whole(node); }

/// For a geometry that was made without edits and is handed out now: enters it with all its
/// properties.
void reportWhole(const ::osg::GeometryPtr& geometry);

} // namespace morva::osg
