#pragma once

// Images whose pixels a caller was given by a bare pointer. Nobody can tell when he is done with
// them, so they stay for the rest of the process; the list makes that visible to leak checkers and
// to whoever counts containers.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGRefPtr.h>

namespace morva::osg {

/// Images that a thread makes while this lives go with it instead: for a pass that hands none of
/// their pixels out. One at a time in a thread.
class passing_images {
  public:
    passing_images();
    passing_images(const passing_images&) = delete;
    passing_images& operator=(const passing_images&) = delete;
    ~passing_images();

    void take(const ::osg::RefPtr<::osg::ImagePtr>& image) { images_.push_back(image); }

  private:
    std::vector<::osg::RefPtr<::osg::ImagePtr>> images_;
};

/// Makes a black image, RGBA with alpha 255 or RGB, that stays. Sides of 0 count as 1.
///
/// returns  null for sides that an image cannot have and without memory; nothing is left then
::osg::ImagePtr newKeptImage(std::uint32_t width, std::uint32_t height, bool hasAlpha);

/// How many there are.
std::size_t keptImages();

/// Makes an image black, RGBA with alpha 255 or RGB; its old pixels are dropped before.
///
/// returns  false for sides above 2^31 - 1, for more than 4 GiB and without memory
bool makeBlack(const ::osg::ImagePtr& image, std::uint32_t width, std::uint32_t height,
               bool hasAlpha);

} // namespace morva::osg
