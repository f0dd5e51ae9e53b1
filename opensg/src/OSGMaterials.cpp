#include "OpenSG/OSGChunkMaterial.h"
#include "OpenSG/OSGLog.h"
#include "OpenSG/OSGMaterial.h"
#include "OpenSG/OSGSimpleMaterial.h"
#include "OpenSG/OSGSimpleTexturedMaterial.h"
#include "OpenSG/OSGSwitchMaterial.h"

#include <algorithm>
#include <set>

OSG_BEGIN_NAMESPACE

#define MATERIAL_FIELD(CLASS, NAME, TEXT) OSG_FIELD_DESC(CLASS, _sf##NAME, TEXT, NAME, false)

OSG_CONTAINER_DEF_ABSTRACT(Material, nullptr, MATERIAL_FIELD(Material, SortKey, "sortKey"),
                           MATERIAL_FIELD(Material, TransparencyMode, "transparencyMode"))

OSG_CONTAINER_DEF(ChunkMaterial, nullptr,
                  OSG_FIELD_DESC(ChunkMaterial, _mfChunks, "chunks", Chunks, false),
                  OSG_FIELD_DESC(ChunkMaterial, _mfSlots, "slots", Slots, false))

OSG_CONTAINER_DEF(SimpleMaterial, nullptr, MATERIAL_FIELD(SimpleMaterial, Ambient, "ambient"),
                  MATERIAL_FIELD(SimpleMaterial, Diffuse, "diffuse"),
                  MATERIAL_FIELD(SimpleMaterial, Specular, "specular"),
                  MATERIAL_FIELD(SimpleMaterial, Shininess, "shininess"),
                  MATERIAL_FIELD(SimpleMaterial, Emission, "emission"),
                  MATERIAL_FIELD(SimpleMaterial, Transparency, "transparency"),
                  MATERIAL_FIELD(SimpleMaterial, Lit, "lit"),
                  MATERIAL_FIELD(SimpleMaterial, ColorMaterial, "colorMaterial"))

OSG_CONTAINER_DEF(SimpleTexturedMaterial, nullptr,
                  MATERIAL_FIELD(SimpleTexturedMaterial, Image, "image"),
                  MATERIAL_FIELD(SimpleTexturedMaterial, MinFilter, "minFilter"),
                  MATERIAL_FIELD(SimpleTexturedMaterial, MagFilter, "magFilter"),
                  MATERIAL_FIELD(SimpleTexturedMaterial, EnvMode, "envMode"),
                  MATERIAL_FIELD(SimpleTexturedMaterial, EnvMap, "envMap"))

OSG_CONTAINER_DEF(SwitchMaterial, nullptr,
                  OSG_FIELD_DESC(SwitchMaterial, _mfMaterials, "materials", Materials, false),
                  MATERIAL_FIELD(SwitchMaterial, Choice, "choice"))

#undef MATERIAL_FIELD

bool Material::isTransparent() const {
    return getTransparencyMode() == TransparencyForceTransparent;
}

Int32 ChunkMaterial::slotOf(UInt32 index) const {
    return index < _mfSlots.size() ? _mfSlots[index] : State::AutoSlotReplace;
}

bool ChunkMaterial::addChunk(const StateChunkPtr& chunk, Int32 slot) {
    if (chunk == NullFC) {
        SWARNING << "ChunkMaterial::addChunk: no chunk given" << endLog;
        return false;
    }
    if (slot != State::AutoSlotReplace) {
        const UInt32 place = _mfChunks.getSize();
        if (_mfSlots.size() <= place)
            _mfSlots.resize(place + 1, State::AutoSlotReplace);
        _mfSlots[place] = slot;
    }
    _mfChunks.add(chunk);
    return true;
}

bool ChunkMaterial::subChunk(const StateChunkPtr& chunk, Int32 slot) {
    for (UInt32 i = 0; i < _mfChunks.size(); ++i) {
        if (_mfChunks[i] != chunk || slotOf(i) != slot)
            continue;
        if (i < _mfSlots.size())
            _mfSlots.erase(_mfSlots.begin() + i);
        _mfChunks.removeAt(i); // may destroy the chunk
        return false;
    }
    SWARNING << "ChunkMaterial::subChunk: the material has no such chunk in this slot" << endLog;
    return true;
}

Int32 ChunkMaterial::find(const StateChunkPtr& chunk) const {
    const auto place = _mfChunks.find(chunk);
    return place != _mfChunks.end() ? static_cast<Int32>(place - _mfChunks.begin()) : -1;
}

StateChunkPtr ChunkMaterial::find(const FieldContainerType& type, Int32 slot) const {
    Int32 number = 0; // of the chunk among those of this type
    for (UInt32 i = 0; i < _mfChunks.size(); ++i) {
        if (_mfChunks[i]->getType() != type)
            continue;
        const Int32 answers = slotOf(i) == State::AutoSlotReplace ? number : slotOf(i);
        if (slot == State::AutoSlotReplace || answers == slot)
            return _mfChunks[i];
        ++number;
    }
    return NullFC;
}

void ChunkMaterial::clearChunks() { _mfChunks.dropAll(); }

bool ChunkMaterial::isTransparent() const {
    if (getTransparencyMode() != TransparencyAutoDetection)
        return Material::isTransparent();
    return std::any_of(_mfChunks.begin(), _mfChunks.end(),
                       [](const StateChunkPtr& chunk) { return chunk->isTransparent(); });
}

bool SimpleMaterial::isTransparent() const {
    if (getTransparencyMode() != TransparencyAutoDetection)
        return ChunkMaterial::isTransparent();
    return getTransparency() > Eps || ChunkMaterial::isTransparent();
}

bool SimpleTexturedMaterial::isTransparent() const {
    if (getTransparencyMode() != TransparencyAutoDetection)
        return SimpleMaterial::isTransparent();
    const bool texture =
        getImage() != NullFC && getImage()->hasAlphaChannel() && getEnvMode() != GL_DECAL;
    return texture || SimpleMaterial::isTransparent();
}

void SwitchMaterial::addMaterial(const MaterialPtr& material) {
    if (material != NullFC)
        _mfMaterials.add(material);
}

void SwitchMaterial::subMaterial(const MaterialPtr& material) {
    const auto place = _mfMaterials.find(material);
    if (place == _mfMaterials.end()) {
        SWARNING << "SwitchMaterial::subMaterial: no such material" << endLog;
        return;
    }
    _mfMaterials.removeAt(static_cast<UInt32>(place - _mfMaterials.begin()));
}

bool SwitchMaterial::hasMaterial(const MaterialPtr& material) const {
    return _mfMaterials.find(material) != _mfMaterials.end();
}

MaterialPtr SwitchMaterial::getMaterial(UInt32 index) const {
    if (index < _mfMaterials.size())
        return _mfMaterials[index];
    SWARNING << "SwitchMaterial::getMaterial: index " << index << " out of range" << endLog;
    return NullFC;
}

MaterialPtr SwitchMaterial::getCurrentMaterial() const { return getMaterial(getChoice()); }

bool SwitchMaterial::isTransparent() const {
    std::set<const SwitchMaterial*> seen; // switches may choose each other in a circle
    const SwitchMaterial* at = this;
    while (at->getChoice() < at->_mfMaterials.size() && seen.insert(at).second) {
        const MaterialPtr chosen = at->_mfMaterials[at->getChoice()];
        const SwitchMaterialPtr inner = SwitchMaterialPtr::dcast(chosen);
        if (inner == NullFC)
            return chosen->isTransparent();
        at = inner.getCPtr();
    }
    return false;
}

OSG_END_NAMESPACE
