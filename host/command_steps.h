#pragma once

// What the roads of several commands have in common: stages with their progress, reading, and the
// end, at which all is told and put in place.

#include <cstddef>
#include <string>
#include <vector>

#include "model.h"
#include "options.h"
#include "output_set.h"
#include "report.h"
#include "stage_clock.h"

namespace morva::host {

/// Stages by name: timed, and told on a terminal while they run.
class progress {
  public:
    explicit progress(bool quiet);
    ~progress() { clear(); }
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

    void begin(const std::string& name);
    void end();
    /// How far the stage is.
    void tell(std::size_t done, std::size_t total);
    const std::vector<stage_record>& stages() const { return clock_.stages(); }

  private:
    void clear();

    bool shown_;
    std::string name_;
    stage_clock clock_;
};

/// Makes room for a file that was asked for; null for an empty path.
staged_output* addUnlessEmpty(output_set& outputs, const std::string& path);

/// Reads the input, and takes down what is to be reported of it.
/// errors  host_error
model readChecked(const options& chosen, run_report& report);

/// The end of every command: tells, and puts all files in their places if that went well.
/// errors  host_error
void finish(const options& chosen, const run_report& report, staged_output* report_stage,
            output_set& outputs);

/// Tells each difference that an audit found.
/// what    the output in the plural or singular, with its verb: "the output does"
/// errors  host_error, if there are any
void refuseDifferences(const std::vector<std::string>& differences, const std::string& what);

} // namespace morva::host
