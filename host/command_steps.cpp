#include "command_steps.h"

#include <iostream>
#include <sstream>

#include <unistd.h>

#include "console.h"
#include "host_error.h"
#include "memory_watch.h"
#include "model_export.h"
#include "output_file.h"
#include "text.h"

namespace morva::host {

progress::progress(bool quiet) : shown_(!quiet && isatty(STDERR_FILENO) != 0) {}

void progress::begin(const std::string& name) {
    clear();
    name_ = name;
    if (shown_)
        std::cerr << name << " ..." << std::flush;
    clock_.begin(name);
}

void progress::end() {
    clock_.end();
    clear();
}

void progress::tell(std::size_t done, std::size_t total) {
    clear();
    if (!shown_)
        return;
    std::ostringstream text;
    text.precision(4);
    text << name_ << " ... " << 100.0 * static_cast<double>(done) / static_cast<double>(total);
    std::cerr << text.str() << "% " << std::flush;
}

void progress::clear() {
    if (shown_)
        std::cerr << "\r\033[K" << std::flush;
}

staged_output* addUnlessEmpty(output_set& outputs, const std::string& path) {
    return path.empty() ? nullptr : &outputs.add(path);
}

void finish(const options& chosen, const run_report& report, staged_output* report_stage,
            output_set& outputs) {
    if (report_stage != nullptr) {
        const auto replace = nlohmann::json::error_handler_t::replace;
        writeFile(report_stage->path(), jsonOf(report).dump(2, ' ', false, replace) + "\n");
        memory_watch::check("writing the report");
    }
    outputs.check();
    tellNotes(report.notes, chosen.quiet);
    tell(chosen.quiet ? std::string() : tableOf(report));
    outputs.commit();
}

model readChecked(const options& chosen, run_report& report) {
    model source = readModel(chosen.input);
    report.input = {chosen.input, source.file_bytes};
    const std::string format =
        chosen.what == command::divide ? chosen.divide.format : extensionOf(chosen.output);
    if (!format.empty() && !keepsRecords(format)) {
        for (std::string& note : source.records.forget())
            source.notes.push_back(std::move(note));
    }
    report.notes = source.notes;
    return source;
}

void refuseDifferences(const std::vector<std::string>& differences, const std::string& what) {
    if (differences.empty())
        return;
    for (const std::string& difference : differences)
        tellError("audit: " + difference);
    throw host_error("the audit failed: " + what + " not hold what went in");
}

} // namespace morva::host
