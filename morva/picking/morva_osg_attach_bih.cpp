#include <morva/picking/morva_osg_attach_bih.h>

#include <algorithm>
#include <new>
#include <unordered_set>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/picking/morva_osg_core_trees.h>

namespace morva::osg {

using ::osg::MorvaAttachBIH;
using ::osg::MorvaAttachBIHPtr;
using ::osg::NodeCorePtr;
using ::osg::NodePtr;

// In a file of its own, which is C++14.
void keepFromRemoteAspects(::osg::UInt32 type, ::osg::BitVector fields);

namespace {

constexpr build_setup picking_setup{3, 50};

/// A derived core has triangles of its own making.
bool isExactGeometry(const NodePtr& node) {
    return node != ::osg::NullFC && node->getCore() != ::osg::NullFC &&
           node->getCore()->getType() == ::osg::Geometry::getClassType();
}

/// Whether another container has the attachment, too: the copy of a core shares what it carries.
bool isShared(const MorvaAttachBIHPtr& attachment, const NodeCorePtr& core) {
    const auto& parents = attachment->getParents();
    return std::any_of(parents.begin(), parents.end(), [&core](const auto& parent) {
        return parent != ::osg::FieldContainerPtr(core);
    });
}

BIHAttachPayload& payloadOf(const MorvaAttachBIHPtr& attachment) {
    return attachment->getFieldPtr()->getValue();
}

void emptyList(triangle_list& list) {
    delete[] list.triangles;
    list = triangle_list();
}

/// Makes room for `count` triangles; the list has as many entries then, in any state.
void resizeList(triangle_list& list, unsigned int count) {
    if (count > list.count) {
        emptyList(list);
        list.triangles = new float_triangle[count];
    }
    list.count = count;
}

/// Stores all triangles but those left out; the list has as many entries.
void storeTriangles(const geometry_columns& columns, const std::vector<std::uint32_t>& left_out,
                    triangle_list& list) {
    float_triangle* next = list.triangles;
    auto gone = left_out.begin();
    std::uint32_t number = 0;
    forEachPlacedTriangle(columns, [&](const auto* a, const auto* b, const auto* c) {
        const bool is_gone = gone != left_out.end() && *gone == number;
        ++number;
        if (is_gone) {
            ++gone;
            return;
        }
        set(next->a, *a);
        set(next->b, *b);
        set(next->c, *c);
        ++next;
    });
}

/// extract_node(), which also tells the triangles that it leaves out: none of an empty list.
int extractTriangles(const NodePtr& node, triangle_list& list,
                     std::vector<std::uint32_t>& left_out) {
    if (!isExactGeometry(node))
        return 0;
    left_out.clear();
    try {
        constexpr vertex_property place[] = {vertex_property::position};
        const geometry_columns columns(::osg::GeometryPtr::dcast(node->getCore()), place);
        const std::uint32_t all = findLeftOut(columns, left_out);
        const auto count = static_cast<std::uint32_t>(all - left_out.size());
        if (count != 0) {
            resizeList(list, count);
            storeTriangles(columns, left_out, list);
            return static_cast<int>(left_out.size());
        }
    } catch (const std::bad_alloc&) {
        say_error({"Out of memory!"});
    }
    emptyList(list);
    left_out.clear();
    return 0;
}

/// Reads the triangles of a node's core into a payload and builds the tree over them.
void fillPayload(const NodePtr& node, BIHAttachPayload& payload) {
    triangle_list& list = *payload.geoset;
    list_facts* const facts = payload_access::facts(payload).get();
    list_facts unasked;
    payload.tree->release();
    extractTriangles(node, list, (facts != nullptr ? *facts : unasked).left_out);
    if (facts != nullptr)
        facts->box = corners_of_elements(list);
    compile(list, *payload.tree, picking_setup); // nothing without triangles
}

void updateBelow(const NodePtr& node, std::unordered_set<::osg::UInt32>& built) {
    if (node == ::osg::NullFC)
        return;
    if (isExactGeometry(node)) {
        if (built.insert(node->getCore().getFieldContainerId()).second)
            attach_bih(node);
        else
            countOne(num_attachments());
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        updateBelow(node->getChild(i), built);
}

} // namespace

std::uint32_t findLeftOut(const geometry_columns& columns, std::vector<std::uint32_t>& left_out) {
    std::uint32_t number = 0;
    forEachPlacedTriangle(columns, [&](const auto* a, const auto* b, const auto* c) {
        if (a == nullptr || b == nullptr || c == nullptr || is_rogue(*a, *b, *c))
            left_out.push_back(number);
        ++number;
    });
    return number;
}

MorvaAttachBIHPtr attachmentOf(const NodeCorePtr& core) {
    return core == ::osg::NullFC ? MorvaAttachBIHPtr()
                                 : MorvaAttachBIHPtr::dcast(core->findAttachment(
                                       MorvaAttachBIH::getClassType().getGroupId()));
}

bool hasTree(const BIHAttachPayload& payload) {
    return payload.tree != nullptr && payload.geoset != nullptr && payload.tree->active != 0;
}

MorvaAttachBIHPtr ownAttachment(const NodeCorePtr& core) {
    const MorvaAttachBIHPtr found = attachmentOf(core);
    const bool own = found != ::osg::NullFC && !isShared(found, core) &&
                     payload_access::facts(payloadOf(found)) != nullptr;
    return own ? found : MorvaAttachBIHPtr();
}

BIHAttachPayload* payloadFor(const NodePtr& node) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return nullptr;
    MorvaAttachBIHPtr found = ownAttachment(node->getCore());
    if (found == ::osg::NullFC) {
        attach_bih(node);
        found = ownAttachment(node->getCore());
    }
    return found != ::osg::NullFC ? &payloadOf(found) : nullptr;
}

bool isReady(const NodePtr& node, BIHAttachPayload& payload) {
    if (!hasTree(payload))
        return false;
    if (payload.dirty)
        update_bih_payload(node, payload);
    return hasTree(payload);
}

template <typename List> int extract_node(NodePtr node, List& list) {
    std::vector<std::uint32_t> left_out;
    return extractTriangles(node, list, left_out);
}
template int extract_node<triangle_list>(NodePtr, triangle_list&);

void attach_bih(NodePtr node) {
    if (!isExactGeometry(node))
        return;
    const NodeCorePtr core = node->getCore();
    BIHAttachPayload payload;
    payload_access::fill(payload);
    fillPayload(node, payload);
    const fresh<MorvaAttachBIHPtr> made(MorvaAttachBIH::create());
    keepFromRemoteAspects(MorvaAttachBIH::getClassType().getId(),
                          ::osg::AttachmentContainer::AttachmentsFieldMask);
    {
        const open_edit core_edit(core, ::osg::AttachmentContainer::AttachmentsFieldMask);
        const open_edit edit(made.get(), MorvaAttachBIH::SimpleFieldMask);
        made->getFieldPtr()->setValue(payload);
        core->addAttachment(made.get());
    }
    countOne(num_attachments());
}

void precalc_BIH(NodePtr node) {
    if (node == ::osg::NullFC)
        return;
    payloadFor(node);
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        precalc_BIH(node->getChild(i));
}

void update_bih(NodePtr node) {
    std::unordered_set<::osg::UInt32> built;
    updateBelow(node, built);
}

void update_bih_node(NodePtr node) {
    if (node == ::osg::NullFC)
        return;
    const MorvaAttachBIHPtr found = attachmentOf(node->getCore());
    if (found == ::osg::NullFC)
        return;
    if (isShared(found, node->getCore()))
        attach_bih(node); // the other core keeps its tree
    else
        update_bih_payload(node, payloadOf(found));
}

void update_bih_payload(NodePtr node, BIHAttachPayload& payload) {
    payload.dirty = false;
    if (payload.tree == nullptr)
        payload.tree.reset(new bih_tree<float>);
    if (payload.geoset == nullptr)
        payload.geoset = newTriangleList();
    const NodeCorePtr core = node != ::osg::NullFC ? node->getCore() : NodeCorePtr();
    const MorvaAttachBIHPtr found = attachmentOf(core);
    if (found == ::osg::NullFC || &payloadOf(found) != &payload) {
        fillPayload(node, payload);
        return;
    }
    const open_edit core_edit(core, ::osg::AttachmentContainer::AttachmentsFieldMask);
    const open_edit edit(found, MorvaAttachBIH::SimpleFieldMask);
    fillPayload(node, payload);
}

void mark_bih(NodePtr node) {
    if (node == ::osg::NullFC)
        return;
    const MorvaAttachBIHPtr found = attachmentOf(node->getCore());
    if (found != ::osg::NullFC) {
        const open_edit edit(found, MorvaAttachBIH::SimpleFieldMask);
        payloadOf(found).dirty = true;
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        mark_bih(node->getChild(i));
}

} // namespace morva::osg
