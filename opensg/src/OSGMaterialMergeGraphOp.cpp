#include "OpenSG/OSGMaterialMergeGraphOp.h"

#include "OSGFieldBytes.h"
#include "OpenSG/OSGGeometry.h"
#include "OpenSG/OSGImage.h"
#include "OpenSG/OSGMaterialGroup.h"

#include <cstring>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

OSG_BEGIN_NAMESPACE

namespace {

/// Whether a field says something about how the container looks.
bool countsAsContent(const FieldContainer& container, const FieldDescription& desc) {
    if (desc.isInternal() || std::strcmp(desc.getCName(), "attachments") == 0)
        return false;
    return container.getType() != Image::getClassType() || desc.getFieldId() != Image::NameFieldId;
}

/// Exact equality of content. A work list instead of recursion: containers may refer to each
/// other in circles and in chains of any length. Two containers that are met again while they
/// are being compared count as equal; if that is wrong, another pair on the list shows it.
class content_comparison {
  public:
    static bool same(const FieldContainerPtr& a, const FieldContainerPtr& b) {
        content_comparison comparison;
        comparison.enter(a, b);
        while (!comparison._open.empty()) {
            const auto [first, second] = comparison._open.back();
            comparison._open.pop_back();
            if (!comparison.sameFields(first, second))
                return false;
        }
        return true;
    }

  private:
    typedef std::pair<FieldContainerPtr, FieldContainerPtr> Pair;

    void enter(const FieldContainerPtr& a, const FieldContainerPtr& b) {
        if (a == b)
            return;
        if (_seen.emplace(osgIdOrZero(a), osgIdOrZero(b)).second) {
            _open.emplace_back(a, b);
        }
    }

    bool sameFields(const FieldContainerPtr& a, const FieldContainerPtr& b) {
        if (a == NullFC || b == NullFC || a->getType() != b->getType())
            return false;
        for (const FieldDescription* desc : a->getType().getFieldDescs()) {
            if (!countsAsContent(*a, *desc))
                continue;
            const Field& left = *desc->getField(*a);
            const Field& right = *desc->getField(*b);
            if (!left.holdsPointers()) {
                if (!left.hasValuesOf(right))
                    return false;
                continue;
            }
            if (left.getSize() != right.getSize())
                return false;
            for (UInt32 i = 0; i < left.getSize(); ++i) {
                enter(left.pointerAt(i), right.pointerAt(i));
            }
        }
        return true;
    }

    std::vector<Pair> _open;
    std::set<std::pair<UInt32, UInt32>> _seen;
};

/// Hashes of content: equal contents have equal hashes. Looks a few references deep, which ends
/// in circles and reaches the pixels of a chunk material inside a switch.
class content_hash {
  public:
    UInt64 of(const FieldContainerPtr& container) { return of(container, maxDepth); }

  private:
    static constexpr UInt32 maxDepth = 4;

    UInt64 of(const FieldContainerPtr& container, UInt32 depth) {
        if (container == NullFC)
            return 0;
        // Images have no references, so that they need one hash for all depths.
        const bool isImage = container->getType() == Image::getClassType();
        const UInt64 key =
            UInt64(container.getFieldContainerId()) * (maxDepth + 1) + (isImage ? 0 : depth);
        const auto known = _known.find(key);
        if (known != _known.end())
            return known->second;
        const UInt64 hash = compute(container, depth);
        _known.emplace(key, hash);
        return hash;
    }

    UInt64 compute(const FieldContainerPtr& container, UInt32 depth) {
        UInt64 hash = osgHashBytes(nullptr, 0, container->getTypeId());
        for (const FieldDescription* desc : container->getType().getFieldDescs()) {
            if (!countsAsContent(*container, *desc))
                continue;
            const Field& field = *desc->getField(*container);
            if (!field.holdsPointers()) {
                hash = hashOfPlain(field, hash);
                continue;
            }
            hash = mix(hash, field.getSize());
            if (depth == 0)
                continue;
            for (UInt32 i = 0; i < field.getSize(); ++i) {
                hash = mix(hash, of(field.pointerAt(i), depth - 1));
            }
        }
        return hash;
    }

    UInt64 hashOfPlain(const Field& field, UInt64 seed) {
        if (const auto* pixels = dynamic_cast<const MFUInt8*>(&field)) {
            return osgHashBytes(pixels->getValues().data(), pixels->size(), seed);
        }
        _bytes.clear();
        field.copyToBin(_bytes);
        return osgHashBytes(_bytes.bytes().data(), _bytes.bytes().size(), seed);
    }

    static UInt64 mix(UInt64 hash, UInt64 value) {
        return osgHashBytes(reinterpret_cast<const UInt8*>(&value), sizeof(value), hash);
    }

    std::unordered_map<UInt64, UInt64> _known; ///< by container number and depth
    field_bytes_out _bytes;
};

/// A core that shows a material.
struct material_user {
    MaterialDrawablePtr drawable; ///< this or the group is null
    MaterialGroupPtr group;

    MaterialPtr material() const {
        return drawable != NullFC ? drawable->getMaterial() : group->getMaterial();
    }
    void set(const MaterialPtr& material) const {
        if (drawable != NullFC) {
            CPEditor bracket(drawable, MaterialDrawable::MaterialFieldMask);
            drawable->setMaterial(material);
        } else {
            CPEditor bracket(group, MaterialGroup::MaterialFieldMask);
            group->setMaterial(material);
        }
    }
};

/// In order of the walk, each core once, those without a material left out.
std::vector<material_user> usersBelow(const GraphOp& operation, const NodePtr& root) {
    std::vector<material_user> users;
    std::unordered_set<UInt32> seenCores;
    std::vector<NodePtr> open{root};
    while (!open.empty()) {
        const NodePtr node = open.back();
        open.pop_back();
        if (operation.isInExcludeList(node))
            continue;
        for (UInt32 i = node->getNChildren(); i-- > 0;)
            open.push_back(node->getChild(i));

        const NodeCorePtr core = node->getCore();
        if (core == NullFC || !seenCores.insert(core.getFieldContainerId()).second)
            continue;
        const material_user user{MaterialDrawablePtr::dcast(core), MaterialGroupPtr::dcast(core)};
        if (user.drawable == NullFC && user.group == NullFC)
            continue;
        if (user.material() != NullFC)
            users.push_back(user);
    }
    return users;
}

/// Finds the first material of each content.
class first_of_equals {
  public:
    MaterialPtr of(const MaterialPtr& material) {
        MaterialPtr& known = _known[material.getFieldContainerId()];
        if (known == NullFC)
            known = search(material);
        return known;
    }

  private:
    MaterialPtr search(const MaterialPtr& material) {
        std::vector<MaterialPtr>& bucket = _buckets[_hash.of(material)];
        for (const MaterialPtr& first : bucket) {
            if (content_comparison::same(first, material))
                return first;
        }
        bucket.push_back(material);
        return material;
    }

    content_hash _hash;
    std::unordered_map<UInt64, std::vector<MaterialPtr>> _buckets;
    // By number, which is never used again: a material dies when its last user changes over. Those
    // that are pointed to live, since their first user keeps them.
    std::unordered_map<UInt32, MaterialPtr> _known;
};

} // namespace

MaterialMergeGraphOp::MaterialMergeGraphOp(const char* name) : GraphOp(name) {}
MaterialMergeGraphOp::~MaterialMergeGraphOp() = default;

bool MaterialMergeGraphOp::traverse(NodePtr& root) {
    if (root == NullFC)
        return false;
    first_of_equals firsts;
    for (const material_user& user : usersBelow(*this, root)) {
        const MaterialPtr material = user.material();
        const MaterialPtr first = firsts.of(material);
        if (first != material)
            user.set(first); // may destroy the material
    }
    return true;
}

GraphOp* MaterialMergeGraphOp::create() { return new MaterialMergeGraphOp; }
void MaterialMergeGraphOp::setParams(const std::string) {}
std::string MaterialMergeGraphOp::usage() {
    return "MaterialMerge: makes users of equal materials share one. No parameters.\n";
}

OSG_END_NAMESPACE
