#pragma once

// The ID map file on its way: the optimiser writes it where it can be checked before it goes to
// its place with the other files.
//
//     id_map_output id_map(parameters, outputs);
//     optTree(root, id_map.parameters());
//     id_map.check(outputs, report);

#include <string>

#include "output_set.h"
#include "report.h"

namespace morva::host {

class id_map_output {
  public:
    /// Makes room for the file, if the parameters ask for one.
    /// errors  host_error: it cannot be written, or the parameters can't name the staged file
    id_map_output(const std::string& parameters, output_set& outputs);

    bool wanted() const { return stage_ != nullptr; }
    /// The parameters for the run.
    const std::string& parameters() const { return parameters_; }

    /// After the run: enters the file in the report, or notes there why none is written.
    /// errors  host_error: it could not be written as a whole
    void check(output_set& outputs, run_report& report);
    /// Takes the file back.
    void drop(output_set& outputs);

  private:
    std::string parameters_, target_;
    staged_output* stage_ = nullptr; ///< null without a file
};

} // namespace morva::host
