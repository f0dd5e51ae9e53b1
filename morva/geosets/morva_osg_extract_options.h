#pragma once

// What an extraction is asked for, by name. The published extract() functions fill it.
//
//     extract_options options;
//     options.to_world = true;
//     extract(node, triangles, options);

#include <OpenSG/OSGNode.h>

namespace morva::osg {

class osg_geoset;
class osg_line_geoset;
class osg_point_geoset;

struct extract_options {
    bool to_world = false;        ///< positions and normals go to world coordinates
    bool search_material = false; ///< a core without material asks the groups above the node
    bool write_ids = false;       ///< texture coordinates 7 get the node's ID
    bool run_setup = false;       ///< setup() at the end
    bool clean_texcoords = false; ///< of triangles: see the published extract()
    bool known_ids_only = false;  ///< IDs that vertices have are copied, and the node gets none
};

unsigned int extract(const ::osg::NodePtr& node, osg_geoset& geoset,
                     const extract_options& options);
unsigned int extract(const ::osg::NodePtr& node, osg_line_geoset& geoset,
                     const extract_options& options);
unsigned int extract(const ::osg::NodePtr& node, osg_point_geoset& geoset,
                     const extract_options& options);

} // namespace morva::osg
