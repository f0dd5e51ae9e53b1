#pragma once

// What createTextureAtlas() is asked for. Plain values.

namespace morva::osg {

struct atlas_options {
    /// Side of an atlas, 32 to 8192, rounded up to a power of two; 8192, with a line, for others.
    unsigned int textureSize = 8192;
    /// Geometry whose coordinates reach higher, as hasTabove() measures, keeps its image.
    unsigned int texcoords = 2;
    /// Triangles that reach higher are cut; 0 and what is negative as int: none.
    unsigned int optimizetc = 2;
    /// Nothing looks different afterwards: each geometry keeps its own material, with another
    /// image, and what an atlas can't show keeps its image. Else geometry gets a plain material of
    /// the atlas, and edges, colours and wrapping may change.
    bool exact = false;
    /// Texels of its own picture around each image, at most 64, for filters and smaller levels.
    unsigned int padding = 0;
};

} // namespace morva::osg
