#pragma once

// Random scenes with textures: few small images of many formats, some equal, some at first; looks
// of many kinds, on the geometry or on groups; all primitive types; shared cores; switches.

#include "tests/support/test.h"

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>

namespace morva_test {

class textured_scene {
  public:
    explicit textured_scene(unsigned seed) : rng_(seed) {
        for (int i = 0; i < 7; ++i)
            images_.emplace_back(anyImage());
        for (int i = 0; i < 9; ++i) {
            materials_.emplace_back(anyMaterial());
            ::osg::setName(materials_.back().get(), "look");
        }
    }
    ::osg::NodePtr root() {
        const ::osg::NodePtr top = group();
        for (unsigned i = 3 + rng_() % 8; i > 0; --i)
            top->addChild(anyBranch(2));
        return top;
    }

  private:
    template <typename Value> Value oneOf(std::initializer_list<Value> values) {
        return values.begin()[rng_() % values.size()];
    }
    bool rarely() { return rng_() % 10 == 0; }

    ::osg::ImagePtr anyImage() {
        using Image = ::osg::Image;
        if (images_.size() > 2 && rng_() % 4 == 0) { // as another one, or nearly so
            const ::osg::ImagePtr old = images_[rng_() % images_.size()].get(),
                                  copy = Image::create();
            copy->set(old);
            if (rng_() % 2 == 0)
                copy->getData()[copy->getSize() - 1] ^= 1;
            return copy;
        }
        const ::osg::UInt32 format =
            oneOf({Image::OSG_RGB_PF, Image::OSG_RGB_PF, Image::OSG_RGB_PF, Image::OSG_RGBA_PF,
                   Image::OSG_RGBA_PF, Image::OSG_L_PF, Image::OSG_LA_PF, Image::OSG_BGR_PF,
                   Image::OSG_BGRA_PF, Image::OSG_A_PF});
        const int side = oneOf({1, 2, 3, 7, 8, 16, 16, 17, 30});
        const ::osg::ImagePtr image =
            ::morva_test::imageOf(format, side, rarely() ? 1 : oneOf({side, side, 5, 16}));
        const bool clear = rng_() % 2 == 0;
        for (unsigned long i = 0; i < image->getSize(); ++i) {
            const bool alpha = image->getBpp() % 2 == 0 && (i + 1) % image->getBpp() == 0;
            image->getData()[i] = alpha && !clear ? 255 : ::osg::UInt8(1 + rng_() % 255);
        }
        return image;
    }

    ::osg::ImagePtr someImage() { return images_[rng_() % images_.size()].get(); }

    ::osg::TextureChunkPtr anyTexture() {
        const ::osg::TextureChunkPtr texture = ::osg::TextureChunk::create();
        ::osg::ImagePtr image = someImage();
        texture->setImage(image);
        for (const int axis : {0, 1}) {
            const ::osg::UInt32 wrap = rng_() % 4 != 0 ? 0x2901u /* repeat */
                                                       : oneOf({0x2900u, 0x812Fu, 0x8370u});
            axis == 0 ? texture->setWrapS(wrap) : texture->setWrapT(wrap);
        }
        texture->setMagFilter(oneOf({0x2600u, 0x2601u}));
        texture->setEnvMode(oneOf({0x2100u, 0x1E01u, 0x0BE2u}));
        return texture;
    }

    ::osg::MaterialPtr anyMaterial() {
        if (rarely())
            return simple({1, 0, 0.5F});
        if (rarely()) {
            const ::osg::SimpleTexturedMaterialPtr plain = ::osg::SimpleTexturedMaterial::create();
            ::osg::ImagePtr image = someImage();
            plain->setImage(image);
            plain->setAmbient(::osg::Color3f(0.1F, 0, 0));
            plain->setDiffuse(::osg::Color3f(1, 0.5F, 0));
            plain->setSpecular(::osg::Color3f(0, 0.2F, 0));
            plain->setEmission(::osg::Color3f(0, 0, 0.3F));
            plain->setShininess(9);
            plain->setLit(rarely());
            plain->setMagFilter(0x2600);
            return plain;
        }
        const ::osg::ChunkMaterialPtr material =
            chunked({oneOf({0.25F, 1.F}), 1, 1, rarely() ? 0.5F : 1.F});
        if (rarely())
            return material;
        material->addChunk(anyTexture());
        if (rarely())
            material->addChunk(anyTexture());
        if (rng_() % 3 == 0) {
            const ::osg::BlendChunkPtr blend = ::osg::BlendChunk::create();
            blend->setAlphaFunc(oneOf({0u, 0x0206u}));
            blend->setDestFactor(oneOf({0u, 0x0303u}));
            material->addChunk(blend);
        }
        if (rarely())
            return choiceOf(0, {material});
        return material;
    }
    ::osg::MaterialPtr someMaterial() { return materials_[rng_() % materials_.size()].get(); }

    mesh_data anyMesh() {
        mesh_data mesh = rarely()          ? mixture(rng_, 4)
                         : rng_() % 3 == 0 ? quads(1 + rng_() % 4)
                         : rng_() % 4 == 0 ? strip(8, 8)
                         : rng_() % 2 == 0 ? soup(rng_, 1 + rng_() % 8)
                                           : strip(3 + rng_() % 5);
        mesh = withNormals(mesh, rng_);
        if (rarely())
            return mesh;
        const float low = oneOf({0.F, 0.F, 0.F, 0.F, -3.F, 40.F}),
                    size = oneOf({1.F, 1.F, 1.F, 1.F, 1.F, 2.F, 4.F, 12.F});
        for (std::size_t i = vertexCount(mesh); i > 0; --i) {
            const auto one = [&] {
                return low +
                       size * oneOf({0.F, 0.F, 1.F, 0.9996F, 0.5F, float(rng_() % 1000) * 0.001F});
            };
            const float u = one();
            mesh.coordinates.emplace_back(u, one());
        }
        if (rng_() % 3 == 0)
            mesh = withColors(mesh, rng_);
        return rarely() ? withIndexPerProperty(mesh, rng_) : mesh;
    }

    ::osg::NodePtr anyBranch(int depth) {
        if (depth == 0 || rng_() % 2 == 0)
            return anyPart();
        node_list below;
        for (unsigned i = 1 + rng_() % 3; i > 0; --i)
            below.push_back(anyBranch(depth - 1));
        return rng_() % 3 == 0 ? materialGroup(rarely() ? ::osg::NullFC : someMaterial(), below)
               : rarely()      ? switched(int(rng_() % 2), below)
               : rarely()      ? hidden(group(below))
                               : group(below);
    }

    ::osg::NodePtr anyPart() {
        if (!cores_.empty() && rng_() % 4 == 0)
            return named("again", nodeOf(cores_[rng_() % cores_.size()].get()));
        const ::osg::GeometryPtr core =
            geometryOf(anyMesh(), rng_() % 3 == 0 ? ::osg::NullFC : someMaterial());
        if (!cores_.empty() && rarely()) { // coordinates that two cores have
            const ::osg::GeometryPtr other = cores_.back().get();
            if (core->getTexCoords() != ::osg::NullFC && other->getTexCoords() != ::osg::NullFC &&
                other->getTexCoords()->size() >= core->getTexCoords()->size())
                core->setTexCoords(other->getTexCoords());
        }
        cores_.emplace_back(core);
        return named("part " + std::to_string(cores_.size()), nodeOf(core));
    }

    std::mt19937 rng_;
    std::vector<::osg::ImageRefPtr> images_;
    std::vector<::osg::MaterialRefPtr> materials_;
    std::vector<geometry_ref> cores_;
};

} // namespace morva_test
