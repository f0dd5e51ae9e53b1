#pragma once

// Trees for picking and collision: each geometry core carries an attachment with a bounding
// interval hierarchy over its triangles, in the core's own coordinates.
//
//     node --> Geometry core --> attachment "MorvaBIH" --> field "morvabih" --> BIHAttachPayload
//     node -----^                  one per core                                  tree, geoset
//
//     precalc_BIH(root);       trees for all cores that have none
//     ...                      picks and collisions make missing ones by themselves
//     mark_bih(root);          after geometry was edited: the next pick of a core builds it anew
//     update_bih(root);        or all at once
//
// Moving a node needs no rebuild. All aspects share tree and list, so that a rebuild in one is seen
// by all; what a payload says beside them (`dirty`) goes by the change list. A payload is never
// written to a file or sent to another machine.
//
// Threads: any number may read a tree that is not `dirty`. Whoever builds or marks one is alone
// with its core; the caller sees to that.

#include <string>

#include <boost/shared_ptr.hpp>

#include <OpenSG/OSGAttachment.h>
#include <OpenSG/OSGConfig.h>
#include <OpenSG/OSGMField.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGSField.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_math.h>
#include <morva/trees/bih_tree.h>

namespace morva::osg {

/// The flat list that a picking tree sorts: a core's triangles without the rogue ones, in the order
/// of the scene graph's iterator. An object number is a place in it.
using triangle_list = geo_set_convertable<float_triangle, float_triangle>;

struct list_facts;

/// What hangs on a core. Copies share tree and list; the last one frees them, triangles included.
struct MORVA_API BIHAttachPayload {
    /// A new empty tree and a new empty list.
    BIHAttachPayload();

    boost::shared_ptr<bih_tree<float>> tree; ///< over `geoset`; active 0 without triangles
    boost::shared_ptr<triangle_list> geoset; ///< `count` triangles in the core's coordinates
    bool dirty = false;                      ///< the geometry has changed since

    bool operator==(const BIHAttachPayload& other) const {
        return tree == other.tree && geoset == other.geoset && dirty == other.dirty &&
               facts_ == other.facts_;
    }

  private:
    friend struct payload_access;
    boost::shared_ptr<list_facts> facts_; ///< shared; null: attach_bih() did not fill it
};

/// Hangs a new payload with a tree on a node's core, in place of one that is there. Only where the
/// core is exactly a Geometry; anything else is left alone, null included.
///
/// Enters attachment and core in the thread's change list, adds 1 to num_attachments().
/// errors  std::bad_alloc: the core is as before. Without memory for the triangles the line "Out of
///         memory!" goes to standard error and the payload stays empty
MORVA_API void attach_bih(::osg::NodePtr node);

/// Gives every core below `node` a tree that has none, children in order. An attachment that was
/// read from a file, made by the factory or is shared with another core counts as none.
MORVA_API void precalc_BIH(::osg::NodePtr node);

/// Builds the trees of all cores below `node` anew, attachments included. A core of several nodes
/// is built once; num_attachments() counts every visit.
MORVA_API void update_bih(::osg::NodePtr node);

/// Builds the tree of a node's core anew if it has one; children are not visited. Brings a core
/// back that had no triangles when its tree was made.
MORVA_API void update_bih_node(::osg::NodePtr node);

/// Reads the triangles of a node's core into a payload, builds its tree over them and clears
/// `dirty`. A core without triangles empties both: the tree is not active then. A node whose core
/// is not exactly a Geometry leaves the triangles as they are.
///
/// Enters attachment and core in the thread's change list if the payload is that of the core.
/// errors  std::bad_alloc: the tree is empty and not active. std::length_error: more than 2^31 - 1
///         triangles or nodes, the same
MORVA_API void update_bih_payload(::osg::NodePtr node, BIHAttachPayload& payload);

/// Says that the geometry below `node` has changed: the next pick or collision of each core that
/// has a tree builds it anew. Nothing is built here. Enters the attachments in the thread's change
/// list.
///
/// A core that had no triangles when its tree was made is not looked at again by a pick: call
/// update_bih_node() for it.
MORVA_API void mark_bih(::osg::NodePtr node);

/// Reads the triangles of a node's core into a list, in the core's coordinates. The array is used
/// again if it is large enough.
///
/// List     triangle_list
/// returns  how many triangles were left out: rogue ones, and those with a corner that its index
///          leads nowhere; 0 for a node whose core is not exactly a Geometry, which leaves the list
///          as it is. A core without triangles empties the list
/// errors   none: without memory the line "Out of memory!" goes to standard error, the list is
///          empty, the result 0
template <typename List> int extract_node(::osg::NodePtr node, List& list);
extern template MORVA_API int extract_node<triangle_list>(::osg::NodePtr, triangle_list&);

} // namespace morva::osg

OSG_BEGIN_NAMESPACE

/// Payloads have no text and no bytes of their own.
template <>
struct FieldDataTraits<morva::osg::BIHAttachPayload>
    : public FieldTraitsRecurseBase<morva::osg::BIHAttachPayload> {
    static DataType& getType();
    static const char* getSName() { return "SFBIH_Tree"; }
    static const char* getMName() { return "MFBIH_Tree"; }
    enum { StringConvertable = ToStringConvertable | FromStringConvertable };
    static bool getFromString(morva::osg::BIHAttachPayload&, const Char8*&) { return true; }
    static void putToString(const morva::osg::BIHAttachPayload&, std::string& text) {
        text = "\"\"";
    }
};

// One of each for all programs and libraries.
extern template class MORVA_API SField<morva::osg::BIHAttachPayload>;
extern template class MORVA_API MField<morva::osg::BIHAttachPayload>;

typedef SField<morva::osg::BIHAttachPayload> SFBIH_Tree;
typedef MField<morva::osg::BIHAttachPayload> MFBIH_Tree;

struct MORVA_API MorvaAttachBIHDesc {
    typedef SFBIH_Tree FieldTypeT;
    static FieldDescription* _desc[];
    static const Char8* getTypeName() { return "MorvaBIH"; }
    static const Char8* getFieldName() { return "morvabih"; }
    static const Char8* getGroupName() { return "morvabih"; }
    static const Char8* getParentTypeName() { return "Attachment"; }
    static InitContainerF getInitMethod() { return nullptr; }
    static FieldDescription** getDesc() { return _desc; }
};

typedef SimpleAttachment<MorvaAttachBIHDesc> MorvaAttachBIH;
typedef FCPtr<AttachmentPtr, MorvaAttachBIH> MorvaAttachBIHPtr;

// The fields of the base class alone: a payload does not travel.
template <> MORVA_API UInt32 MorvaAttachBIH::getBinSize(const BitVector& which);
template <>
MORVA_API void MorvaAttachBIH::copyToBin(BinaryDataHandler& out, const BitVector& which);
template <>
MORVA_API void MorvaAttachBIH::copyFromBin(BinaryDataHandler& in, const BitVector& which);
template <> MORVA_API void MorvaAttachBIH::dump(UInt32 indent, const BitVector flags) const;

extern template class SimpleAttachment<MorvaAttachBIHDesc>;

OSG_END_NAMESPACE
