#pragma once

// The values of a binary glTF 2.0 file go straight into the properties of geometry cores.
//
//     glb_values values(document, outline.primitives);
//     core = values.coreOf(mesh, set);      for each, in the scene's order: empty properties
//     values.fill();                        all of them, on the machine's processors
//
// A portion of a property grows in the cache and is read over: each value is written to memory
// once. Threads: fill() touches vectors of plain values alone; containers are made and closed by
// the caller's thread.

#include <functional>
#include <vector>

#include <OpenSG/OSGGeometry.h>

#include "glb_outline.h"

namespace morva::host {

class glb_values {
  public:
    glb_values(const gltf_document& document, const std::vector<glb_primitive>& primitives);

    /// A new core whose values are still to come, all but the colours.
    /// errors  host_error: the file has become shorter
    ::osg::GeometryPtr coreOf(unsigned mesh, unsigned coordinate_set);

    /// errors  host_error: a position that is not finite, an index that leads out of its vertices,
    ///         the file has become shorter; std::bad_alloc. The cores are of no use then.
    void fill();

  private:
    template <typename Property>
    typename Property::PtrType later(std::function<void(typename Property::StoredFieldType&)> fill);
    ::osg::GeoColorsPtr colors(const gltf_accessor& from) const;
    ::osg::GeoTexCoordsPtr coordinates(const gltf_accessor& from);
    ::osg::GeoIndicesPtr indices(const glb_primitive& from);

    const gltf_document& document_;
    const std::vector<glb_primitive>& primitives_;
    std::vector<std::function<void()>> jobs_;
};

} // namespace morva::host
