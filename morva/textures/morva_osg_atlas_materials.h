#pragma once

// Materials whose image moves into an atlas, where nothing else of them is to change.
//
//     textureUse(material, image, false)     what an atlas must know of how it is shown
//
//     material_copies copies;
//     copies.want(material);                 ... all that show the atlas
//     copies.make(kept_part);
//     copies.of(material);                   the material with the atlas in the place of its image

#include <optional>
#include <unordered_map>
#include <vector>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/textures/morva_osg_atlas_record.h>

namespace morva::osg {

/// How a material shows its image.
struct texture_use {
    std::optional<atlas_obstacle> obstacle; ///< why a copy of it could not show an atlas
    bool repeats_u = true;
    bool repeats_v = true;
};

/// image        that getImage() gives for the material
/// transparent  the atlas would be RGBA
texture_use textureUse(const ::osg::MaterialPtr& material, const ::osg::ImagePtr& image,
                       bool transparent);

/// Copies of materials with another image, which repeats. Materials that differ by their image
/// alone have one copy. Needs materials without obstacle.
class material_copies {
  public:
    void want(const ::osg::MaterialPtr& material);

    /// Makes the copies, all with this image.
    void make(const ::osg::ImagePtr& image);

    /// Null for a material that was not wanted.
    ::osg::MaterialPtr of(const ::osg::MaterialPtr& material) const;

  private:
    std::vector<::osg::RefPtr<::osg::MaterialPtr>> sources_;
    std::vector<::osg::RefPtr<::osg::MaterialPtr>> copies_; ///< of the sources, equal ones repeated
    std::unordered_map<::osg::UInt32, std::size_t> numbers_;
};

} // namespace morva::osg
