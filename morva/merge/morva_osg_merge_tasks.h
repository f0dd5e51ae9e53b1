#pragma once

// What the workers of the merge pass do: one record per task, and the function that a worker runs
// on it. A threadHandler starts them, see there; task_list does all of it.

#include <string>
#include <vector>

#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_osg_limits.h>
#include <morva/core/morva_osg_params.h>
#include <morva/idmap/morva_osg_late_names.h>
#include <morva/merge/threadHandler.h>
#include <morva/trees/kd_records.h>

namespace morva::osg {

/// A task of the merge stage: one group.
struct mergeGeometryMTArguments {
    const ::osg::MaterialPtr* material = nullptr;
    const std::vector<::osg::NodePtr>* nodes = nullptr;
    const kd_build_setup* kd = nullptr;
    const mergeGeo_setup* setup = nullptr;
    unsigned int limit = batch_limit;
    ::osg::NodePtr result;            ///< unowned until it is joined; null if the task failed
    std::string barrier;              ///< own barrier; empty: the task ran on the main thread
    threadHandler* handler = nullptr; ///< that started the task
    bool finished = false;            ///< by leave(), under the handler's lock
    late_names* names = nullptr;      ///< where generated names wait; null: drawn at once
};

/// Runs mergeGeometryInVector() on a mergeGeometryMTArguments, as a worker.
MORVA_API void mergeGeometryInVectorMultithread(void* arguments);

/// Runs mergeGeometryInVectorWithHierarchy() on a mergeGeometryMTArguments, as a worker. Volumes of
/// the nodes are to be up to date.
MORVA_API void mergeGeometryInVectorWithHierarchyMultithread(void* arguments);

/// A task of the cache stage: one geometry node.
struct cacheoptMTArguments {
    unsigned int limit = cache_limit;
    bool per_property = false; ///< as for optimizeCache()
    ::osg::NodePtr source;
    std::string barrier;              ///< as above
    ::osg::NodePtr result;            ///< as above; can be the source itself
    bool above_limit = false;         ///< out: by optimizeCache()
    threadHandler* handler = nullptr; ///< that started the task
    bool finished = false;            ///< by leave(), under the handler's lock
    late_names* names = nullptr;      ///< where generated names wait; null: drawn at once
};

/// Runs optimizeCache() on a cacheoptMTArguments, as a worker.
MORVA_API void CacheOptMultithread(void* arguments);

} // namespace morva::osg
