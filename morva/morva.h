#pragma once

// Every public header of the library: these, and what they include, are what is installed.

#include <morva/core/morva_huge_pages.h>
#include <morva/core/morva_math.h>
#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_limits.h>
#include <morva/core/morva_osg_params.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_single_index.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_twister.h>
#include <morva/draworder/morva_osg_cacheopt.h>
#include <morva/draworder/morva_osg_line_cacheopt.h>
#include <morva/driver/morva_osg_run_plan.h>
#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/driver/morva_osg_scene_placement.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>
#include <morva/geosets/morva_osg_splitmodel.h>
#include <morva/idmap/morva_filetools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/merge/morva_osg_merge_tasks.h>
#include <morva/merge/threadHandler.h>
#include <morva/textures/morva_osg_texcoords.h>
#include <morva/trees/bih_tree.h>
#include <morva/trees/kd_strategies.h>
#include <morva/trees/kd_tree.h>
#include <morva/trees/ray_traversal.h>
