#pragma once

// Runs of pixels of 8 bits a channel, with alpha and without. Source and target are apart.

#include <cstdint>

namespace morva::osg {

/// From three channels to four: alpha is 255.
void widenPixels(const unsigned char* from, unsigned char* to, std::int64_t count);

/// From four channels to three: the last one is left out.
void narrowPixels(const unsigned char* from, unsigned char* to, std::int64_t count);

} // namespace morva::osg
