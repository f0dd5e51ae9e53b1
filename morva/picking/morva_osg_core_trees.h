#pragma once

// The way from a node to the tree of its core, for picking and collision alike.
//
//     BIHAttachPayload* const payload = payloadFor(node);      made if there is none
//     if (payload == nullptr || !isReady(node, *payload))      built anew if dirty
//         return ...;                                          no triangles
//     payload->tree, payload->geoset ...
//
// For the library's own source files. Threads: see morva_osg_attach_bih.h.

#include <cstdint>
#include <vector>

#include <morva/core/morva_math.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/picking/morva_osg_attach_bih.h>

namespace morva::osg {

/// What is known of a list beside it. Shared by the copies of a payload, as the list is.
struct list_facts {
    float_box box; ///< of the triangles; unlike that of the list, flat where they are
    /// Triangles, by the scene graph's iterator, that the list leaves out; ascending.
    std::vector<std::uint32_t> left_out;
};

struct payload_access {
    /// Null: attach_bih() did not fill the payload.
    static const boost::shared_ptr<list_facts>& facts(const BIHAttachPayload& payload) {
        return payload.facts_;
    }
    static void fill(BIHAttachPayload& payload) { payload.facts_.reset(new list_facts); }
};

/// A new empty list, which frees its triangles.
boost::shared_ptr<triangle_list> newTriangleList();

/// The attachment of a core, whoever made or shares it; null if there is none, and for a null core.
::osg::MorvaAttachBIHPtr attachmentOf(const ::osg::NodeCorePtr& core);

/// The attachment of a core that is its own and that attach_bih() filled; null if there is none.
::osg::MorvaAttachBIHPtr ownAttachment(const ::osg::NodeCorePtr& core);

/// The payload of a node's core; attach_bih() makes one if there is none of the core's own. Null
/// where that makes none, and for a null node.
BIHAttachPayload* payloadFor(const ::osg::NodePtr& node);

/// Whether a payload has a tree over triangles, dirty or not.
bool hasTree(const BIHAttachPayload& payload);

/// Whether a payload has a tree to ask; one that has and is dirty is built anew first.
bool isReady(const ::osg::NodePtr& node, BIHAttachPayload& payload);

/// Enters the triangles that a list leaves out, ascending, and returns how many there are with and
/// without.
std::uint32_t findLeftOut(const geometry_columns& columns, std::vector<std::uint32_t>& left_out);

/// The triangle, by the scene graph's iterator, of an object of a list that leaves some out.
std::uint32_t triangleOfObject(const std::vector<std::uint32_t>& left_out, std::uint32_t object);

} // namespace morva::osg
