#include "commands.h"

#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>
#include <streambuf>
#include <string>
#include <utility>

#include <unistd.h>

#include <morva/core/morva_osg_params.h>
#include <morva/driver/morva_osg_scenerebuild.h>

#include "audit.h"
#include "host_error.h"
#include "model.h"
#include "model_export.h"
#include "optimiser_output.h"
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
        name_ = name;
        if (shown_)
            std::cerr << name << " ..." << std::flush;
        clock_.begin(name);
    }
    void end() {
        clock_.end();
        clear();
    }
    /// How far the stage is.
    void tell(const std::string& text) {
        clear();
        if (shown_)
            std::cerr << name_ << " ... " << text << std::flush;
    }
    const std::vector<stage_record>& stages() const { return clock_.stages(); }

  private:
    void clear() {
        if (shown_)
            std::cerr << "\r\033[K" << std::flush;
    }

    bool shown_;
    std::string name_;
    stage_clock clock_;
};

/// Stands before standard output while it lives, so that the optimiser prints what is asked for:
/// its lines, if at all, and its progress on a terminal only.
class output_guard {
  public:
    output_guard(bool lines, progress& steps)
        : saved_(std::cout.rdbuf()),
          filter_(lines ? saved_ : nullptr,
                  [&steps](const std::string& text) { steps.tell(text); }) {
        // A terminal that shows the lines can do with the text as it is.
        if (!lines || isatty(STDOUT_FILENO) == 0)
            std::cout.rdbuf(&filter_);
    }
    ~output_guard() { std::cout.rdbuf(saved_); }
    output_guard(const output_guard&) = delete;
    output_guard& operator=(const output_guard&) = delete;

  private:
    std::streambuf* saved_;
    optimiser_output filter_;
};

/// Keeps the input and, where it is another one, the result.
::osg::NodeRefPtr optimised(const model& source, const options& chosen,
                            const std::string& parameters, progress& steps) {
    std::string text = parameters;
    const bool help = morva::osg::parseOptTreeParams(text).count("help") != 0;
    const output_guard guard(chosen.verbose || help, steps);
    ::osg::NodePtr result = morva::osg::optTree(source.root.get(), withThreads(parameters));
    if (result == ::osg::NullFC)
        throw host_error("the optimiser gave no scene");
    return ::osg::NodeRefPtr(result);
}

/// The ID map file on its way: the optimiser writes it where it can be checked first.
class id_map_output {
  public:
    explicit id_map_output(const options& chosen)
        : parameters_(chosen.parameters), target_(idMapFile(chosen)) {
        if (target_.empty())
            return;
        stage_ = std::make_unique<staged_output>(target_);
        const std::string path = stage_->path();
        parameters_ = withValue(parameters_, "idmap", path.substr(0, path.size() - 5)); // .json
    }

    bool wanted() const { return stage_ != nullptr; }
    /// The parameters for the run.
    const std::string& parameters() const { return parameters_; }

    /// Puts the file in its place. The optimiser does not tell when the disk is full: the end of
    /// the text does.
    void commit(run_report& report) {
        if (!wanted())
            return;
        std::ifstream file(stage_->path(), std::ios::binary);
        if (!file) {
            report.notes.push_back("no ID map file is written: no part went through the merge");
            return;
        }
        const std::string end = "}\n}\n\n";
        std::string read(end.size(), ' ');
        file.seekg(-static_cast<std::streamoff>(end.size()), std::ios::end);
        if (!file.read(read.data(), static_cast<std::streamsize>(read.size())) || read != end)
            throw host_error("cannot write '" + target_ + "': the file is cut short");
        report.id_map = file_record{target_, stage_->commit()};
    }

  private:
    std::string parameters_, target_;
    std::unique_ptr<staged_output> stage_; ///< null without a file
};

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
    id_map_output id_map(chosen);
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
    if (id_map.wanted() && !chosen.keep_names)
        makeTreeSafe(source.root.get());
    report.plan = planAudit(source.root.get(), parts, chosen.parameters);
    steps.begin("optimise");
    const ::osg::NodeRefPtr result = optimised(source, chosen, id_map.parameters(), steps);
    steps.begin("audit");
    report.after = measureScene(result.get(), wanted);
    report.verdict = judge(*report.plan, result.get());
    for (const std::string& note : report.verdict->notes)
        report.notes.push_back(note);
    refuseEmpty(*report.after);
    steps.begin("write");
    for (std::string& note : writeModel(result.get(), source.images, stage.path()))
        report.notes.push_back(std::move(note));
    report.output = {chosen.output, stage.commit()};
    id_map.commit(report);
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
