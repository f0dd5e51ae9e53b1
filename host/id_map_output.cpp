#include "id_map_output.h"

#include <morva/driver/morva_osg_run_plan.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "host_error.h"
#include "parameter_notes.h"

namespace morva::host {

id_map_output::id_map_output(const std::string& parameters, output_set& outputs)
    : parameters_(parameters), target_(morva::osg::planOf(parameters_).idmap_file) {
    if (target_.empty())
        return;
    stage_ = &outputs.add(target_);
    const std::string path = stage_->path();
    parameters_ = withValue(parameters_, "idmap", path.substr(0, path.size() - 5));
    if (morva::osg::planOf(parameters_).idmap_file != path)
        throw host_error("cannot write '" + target_ + "': parameters can't hold '" + path + "'");
}

void id_map_output::check(output_set& outputs, run_report& report) {
    if (!wanted())
        return;
    const std::string failure = "cannot write '" + target_ + "'";
    switch (morva::osg::getIDmapHandler().file) {
    case map_file::none:
        report.notes.push_back("no ID map file is written: no part went through the merge");
        drop(outputs);
        return;
    case map_file::not_opened:
        throw host_error(failure);
    case map_file::cut_short:
        throw host_error(failure + ": the file is cut short");
    case map_file::whole:
        report.id_map = file_record{target_, stage_->bytes()};
    }
}

void id_map_output::drop(output_set& outputs) {
    if (wanted())
        outputs.drop(*stage_);
    stage_ = nullptr;
}

} // namespace morva::host
