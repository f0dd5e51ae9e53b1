#include "commands.h"

#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <streambuf>
#include <utility>

#include <unistd.h>

#include <morva/driver/morva_osg_params.h>
#include <morva/driver/morva_osg_scenerebuild.h>

#include "audit.h"
#include "host_error.h"
#include "model.h"
#include "model_export.h"
#include "parameter_notes.h"
#include "part_names.h"
#include "report.h"
#include "staged_output.h"

namespace morva::host {

namespace {

/// Stages by name: timed, and told on a terminal while they run.
class progress {
  public:
    explicit progress(bool quiet) : shown_(!quiet && isatty(STDERR_FILENO) != 0) {}
    ~progress() { clear(); }

    void begin(const std::string& name) {
        clear();
        if (shown_)
            std::cerr << name << " ..." << std::flush;
        clock_.begin(name);
    }
    void end() {
        clock_.end();
        clear();
    }
    const std::vector<stage_record>& stages() const { return clock_.stages(); }

  private:
    void clear() {
        if (shown_)
            std::cerr << "\r\033[K" << std::flush;
    }

    bool shown_;
    stage_clock clock_;
};

class swallowing_buffer : public std::streambuf {
    int_type overflow(int_type letter) override { return traits_type::not_eof(letter); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

/// Swallows standard output while it lives, unless told not to.
class output_silencer {
  public:
    explicit output_silencer(bool active) : saved_(active ? std::cout.rdbuf(&nothing_) : nullptr) {}
    ~output_silencer() {
        if (saved_ != nullptr)
            std::cout.rdbuf(saved_);
    }
    output_silencer(const output_silencer&) = delete;
    output_silencer& operator=(const output_silencer&) = delete;

  private:
    swallowing_buffer nothing_;
    std::streambuf* saved_;
};

/// Keeps the input and, where it is another one, the result.
::osg::NodeRefPtr optimised(const model& source, const options& chosen) {
    std::string text = chosen.parameters;
    const bool help = morva::osg::parseOptTreeParams(text).count("help") != 0;
    const output_silencer silencer(!chosen.verbose && !help);
    ::osg::NodePtr result = morva::osg::optTree(source.root.get(), chosen.parameters);
    if (result == ::osg::NullFC)
        throw host_error("the optimiser gave no scene");
    return ::osg::NodeRefPtr(result);
}

void tellNotes(const std::vector<std::string>& notes, bool quiet) {
    if (quiet)
        return;
    for (const std::string& note : notes)
        std::cerr << "morva: note: " << note << "\n";
}

void writeReport(staged_output* stage, const run_report& report) {
    if (stage == nullptr)
        return;
    const std::string text =
        jsonOf(report).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    output_file file(stage->path());
    file.write(text.data(), text.size());
    file.close();
    stage->commit();
}

std::unique_ptr<staged_output> stageFor(const std::string& path) {
    return path.empty() ? nullptr : std::make_unique<staged_output>(path);
}

model readChecked(const options& chosen, run_report& report) {
    model source = readModel(chosen.input);
    report.input = {chosen.input, source.file_bytes};
    report.notes = source.notes;
    return source;
}

void refuseFaults(const scene_statistics& scene, const std::string& path) {
    if (scene.faulty_cores != 0)
        throw host_error("'" + path + "' is damaged: " + std::to_string(scene.faulty_cores) +
                         " geometries have indices behind their last position");
}

void refuseEmpty(const scene_statistics& scene) {
    if (scene.triangles + scene.lines + scene.points == 0)
        throw host_error("nothing is left to draw: every triangle is degenerate or left out");
}

} // namespace

void optimize(const options& chosen) {
    run_report report;
    report.command = "optimize";
    report.parameters = chosen.parameters;
    // First of all, so that a wrong folder shows before the work is done.
    staged_output stage(chosen.output);
    const std::unique_ptr<staged_output> report_stage = stageFor(chosen.report);
    progress steps(chosen.quiet);
    const bool nobody_reads = chosen.quiet && chosen.report.empty();
    const measure wanted = nobody_reads ? measure::counts : measure::all;

    steps.begin("read");
    const model source = readChecked(chosen, report);
    for (std::string& note : parameterNotes(chosen.parameters))
        report.notes.push_back(std::move(note));
    steps.begin("measure");
    report.before = measureScene(source.root.get(), wanted);
    refuseFaults(report.before, chosen.input);
    const std::vector<named_part> parts = namedParts(source.root.get(), !chosen.keep_names);
    report.plan = planAudit(source.root.get(), parts, chosen.parameters);
    steps.begin("optimise");
    const ::osg::NodeRefPtr result = optimised(source, chosen);
    steps.begin("audit");
    report.after = measureScene(result.get(), wanted);
    report.verdict = judge(*report.plan, result.get());
    refuseEmpty(*report.after);
    steps.begin("write");
    for (std::string& note : writeModel(result.get(), source.images, stage.path()))
        report.notes.push_back(std::move(note));
    report.output = {chosen.output, stage.commit()};
    steps.end();

    report.stages = steps.stages();
    writeReport(report_stage.get(), report);
    tellNotes(report.notes, chosen.quiet);
    if (!chosen.quiet)
        std::cout << tableOf(report) << std::flush;
    if (report.verdict->differences.empty())
        return;
    for (const std::string& difference : report.verdict->differences)
        std::cerr << "morva: audit: " << difference << "\n";
    throw host_error("the audit failed: the output does not hold what went in");
}

void info(const options& chosen) {
    run_report report;
    report.command = "info";
    const std::unique_ptr<staged_output> report_stage = stageFor(chosen.report);
    progress steps(chosen.quiet);
    steps.begin("read");
    const model source = readChecked(chosen, report);
    steps.begin("measure");
    report.before = measureScene(source.root.get());
    refuseFaults(report.before, chosen.input);
    steps.end();
    report.stages = steps.stages();
    writeReport(report_stage.get(), report);
    tellNotes(report.notes, chosen.quiet);
    if (!chosen.quiet)
        std::cout << tableOf(report) << std::flush;
}

int run(int argc, const char* const* argv) {
    try {
        const std::optional<options> chosen = parseCommandLine(argc, argv);
        if (!chosen)
            return exit_good;
        if (chosen->what == command::optimize)
            optimize(*chosen);
        else
            info(*chosen);
        return exit_good;
    } catch (const host_error& error) {
        std::cerr << "morva: " << error.what() << "\n";
        return error.code;
    } catch (const std::bad_alloc&) {
        std::cerr << "morva: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << "morva: " << error.what() << "\n";
    }
    return exit_failed;
}

} // namespace morva::host
