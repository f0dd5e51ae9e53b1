#include <morva/merge/morva_osg_merge_tasks.h>

#include <morva/draworder/morva_osg_cacheopt.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/merge/morva_osg_task_list.h>

namespace morva::osg {

void mergeGeometryInVectorMultithread(void* arguments) {
    auto& task = *static_cast<mergeGeometryMTArguments*>(arguments);
    runWorker(task, [&task] {
        return mergeGeometryInVector(*task.material, *task.nodes, *task.kd, *task.setup,
                                     task.limit);
    });
}

void mergeGeometryInVectorWithHierarchyMultithread(void* arguments) {
    auto& task = *static_cast<mergeGeometryMTArguments*>(arguments);
    runWorker(task, [&task] {
        return mergeGeometryInVectorWithHierarchy(*task.material, *task.nodes, *task.kd,
                                                  *task.setup, task.limit);
    });
}

void CacheOptMultithread(void* arguments) {
    auto& task = *static_cast<cacheoptMTArguments*>(arguments);
    runWorker(task, [&task] {
        return optimizeCache(task.source, task.above_limit, task.limit, task.per_property);
    });
}

} // namespace morva::osg
