#pragma once

#include "OSGMaterial.h"
#include "OSGState.h"
#include "OSGStateChunk.h"

OSG_BEGIN_NAMESPACE

class ChunkMaterial;
typedef FCPtr<MaterialPtr, ChunkMaterial> ChunkMaterialPtr;
typedef RefPtr<ChunkMaterialPtr> ChunkMaterialRefPtr;

/// A list of counted chunks. Slots run beside the chunks and may be fewer: a chunk without an
/// entry has State::AutoSlotReplace, and entries start with the first chunk that has another one.
class OSG_BASE_DLLMAPPING ChunkMaterial : public Material {
    OSG_CONTAINER_DECL(ChunkMaterial, Material, ChunkMaterialPtr)
  public:
    OSG_FIELD(Chunks, 4)
    OSG_FIELD(Slots, 5)

    /// Appends. False, with a warning, for null.
    bool addChunk(const StateChunkPtr& chunk, Int32 slot = State::AutoSlotReplace);
    /// Takes off the first entry of this chunk in this slot. Returns false when that is done and
    /// true, with a warning, when there is none: callers test for failure.
    bool subChunk(const StateChunkPtr& chunk, Int32 slot = State::AutoSlotReplace);
    /// Index, or -1.
    Int32 find(const StateChunkPtr& chunk) const;
    /// The first chunk of exactly this type, in this slot unless it is AutoSlotReplace, or null. A
    /// chunk without a slot of its own counts as being in the one of its number among its type.
    StateChunkPtr find(const FieldContainerType& type, Int32 slot = State::AutoSlotReplace) const;
    /// Drops the chunks; the slots stay, and chunks that are added later fall into them.
    void clearChunks();

    const MFStateChunkPtr& getChunks() const { return _mfChunks; }
    const StateChunkPtr& getChunks(UInt32 index) const { return _mfChunks[index]; }
    const MFStateChunkPtr* getMFChunks() const { return &_mfChunks; }
    MFInt32& getSlots() { return _mfSlots; }
    const MFInt32& getSlots() const { return _mfSlots; }
    Int32& getSlots(UInt32 index) { return _mfSlots[index]; }
    const MFInt32* getMFSlots() const { return &_mfSlots; }
    MFInt32* editMFSlots() { return &_mfSlots; }

    bool isTransparent() const override;

  protected:
    ChunkMaterial() = default;
    ChunkMaterial(const ChunkMaterial&) = default;

  private:
    Int32 slotOf(UInt32 index) const;

    OwnedMField<StateChunkPtr> _mfChunks;
    MFInt32 _mfSlots;
};

OSG_END_NAMESPACE
