#pragma once

// Properties of the import library's materials.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include <assimp/material.h>

namespace morva::host {

/// Reads the properties of a material without trusting their lengths.
class property_reader {
  public:
    explicit property_reader(const aiMaterial& material) : material_(material) {}

    const aiMaterialProperty* find(const char* key, unsigned semantic, unsigned index) const {
        for (unsigned i = 0; i < material_.mNumProperties; ++i) {
            const aiMaterialProperty* property = material_.mProperties[i];
            if (property != nullptr && property->mData != nullptr &&
                property->mSemantic == semantic && property->mIndex == index &&
                std::strcmp(property->mKey.C_Str(), key) == 0)
                return property;
        }
        return nullptr;
    }

    /// Fills up to `count` floats; returns how many.
    unsigned floats(const char* key, unsigned semantic, unsigned index, float* out,
                    unsigned count) const {
        const aiMaterialProperty* property = find(key, semantic, index);
        if (property == nullptr)
            return 0;
        const bool wide = property->mType == aiPTI_Double;
        if (!wide && property->mType != aiPTI_Float)
            return 0;
        const unsigned size = wide ? 8 : 4;
        const unsigned there = std::min(count, property->mDataLength / size);
        for (unsigned i = 0; i < there; ++i) {
            double value = 0.0;
            if (wide)
                std::memcpy(&value, property->mData + std::size_t{8} * i, 8);
            else
                std::memcpy(&out[i], property->mData + std::size_t{4} * i, 4);
            if (wide)
                out[i] = static_cast<float>(value);
        }
        return there;
    }

    /// A number of any integer width; `fallback` if there is none.
    int integer(const char* key, unsigned semantic, unsigned index, int fallback) const {
        const aiMaterialProperty* property = find(key, semantic, index);
        if (property == nullptr || property->mDataLength == 0)
            return fallback;
        if (property->mDataLength < 4)
            return static_cast<unsigned char>(property->mData[0]);
        std::memcpy(&fallback, property->mData, 4);
        return fallback;
    }

    /// Number of the set of coordinates that a texture reads.
    unsigned coordinateSet(unsigned semantic) const {
        return static_cast<unsigned>(std::clamp(integer(AI_MATKEY_UVWSRC(semantic, 0), 0), 0, 7));
    }

    std::string text(const char* key, unsigned semantic, unsigned index) const {
        const aiMaterialProperty* property = find(key, semantic, index);
        ai_uint32 length = 0;
        if (property == nullptr || property->mType != aiPTI_String || property->mDataLength < 4)
            return std::string();
        std::memcpy(&length, property->mData, 4);
        length = std::min(length, property->mDataLength - 4);
        return std::string(property->mData + 4, length).c_str();
    }

  private:
    const aiMaterial& material_;
};

} // namespace morva::host
