#include "pick_command.h"

#include <utility>
#include <vector>

#include <OpenSG/OSGLine.h>

#include <morva/core/morva_osg_sink.h>
#include <morva/driver/morva_osg_run_plan.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/picking/morva_osg_ray_hits.h>

#include "atlas_notes.h"
#include "auto_road.h"
#include "console.h"
#include "host_error.h"
#include "memory_watch.h"
#include "model.h"
#include "parameter_notes.h"
#include "part_lookup.h"
#include "part_table.h"
#include "pick_answer.h"
#include "statistics.h"

namespace morva::host {

namespace {

/// The hits of a ray: the first one, or all of them. `parts` tells the label of a hit.
template <typename Parts>
ray_answers answersTo(const pick_ray& ray, const ::osg::NodePtr& root, const pick_options& asked,
                      const Parts& parts) {
    const ::osg::Line line(ray.origin, ray.direction);
    std::vector<morva::osg::ray_hit> hits;
    if (asked.all) {
        hits = morva::osg::all_hits(root, line, asked.both_sides);
    } else {
        morva::osg::ray_hit first;
        if (morva::osg::first_hit(root, line, asked.both_sides, first))
            hits.push_back(first);
    }
    ray_answers answers;
    for (const morva::osg::ray_hit& hit : hits)
        answers.push_back(
            {parts.of(hit), hit.distance, hit.point, hit.normal, hit.triangle, hit.back_face});
    return answers;
}

/// Tells answers as they come, some at a time.
class answer_teller {
  public:
    explicit answer_teller(const pick_options& asked) : asked_(asked) {}

    template <typename Answer> void add(const Answer& answer) {
        if (asked_.json) {
            const auto replace = nlohmann::json::error_handler_t::replace;
            text_ += jsonOf(answer, asked_.all).dump(-1, ' ', false, replace) + "\n";
        } else {
            ++count_;
            if (asked_.rays.size() > 1)
                text_ += (count_ > 1 ? "\nray " : "ray ") + std::to_string(count_) + "\n";
            text_ += textOf(answer);
        }
        if (text_.size() > 1 << 16)
            flush();
    }
    void flush() {
        memory_watch::check("picking");
        tell(text_);
        text_.clear();
    }

  private:
    const pick_options& asked_;
    std::string text_;
    std::size_t count_ = 0;
};

/// Picks in the file alone.
void pickFile(const model& source, const options& chosen) {
    const node_parts nodes(namedParts(source.root.get(), false));
    const file_parts parts(chosen.input, source, nodes);
    answer_teller teller(chosen.pick);
    for (const pick_ray& ray : chosen.pick.rays)
        teller.add(answersTo(ray, source.root.get(), chosen.pick, parts));
    teller.flush();
}

/// Picks in the file, and then in the result of a run, which takes the file's scene apart.
void pickBoth(const model& source, const options& chosen, const std::string& parameters) {
    const std::vector<named_part> parts = namedParts(source.root.get(), true);
    const node_parts nodes(parts);
    std::vector<answer_pair> answers;
    for (const pick_ray& ray : chosen.pick.rays)
        answers.push_back({answersTo(ray, source.root.get(), chosen.pick, nodes), {}});
    const run_result result = optimisedInMemory(source.root.get(), parts, nodes, parameters);
    answer_teller teller(chosen.pick);
    for (std::size_t i = 0; i < answers.size(); ++i) {
        answers[i].result =
            answersTo(chosen.pick.rays[i], result.root.get(), chosen.pick, result.parts);
        teller.add(answers[i]);
    }
    teller.flush();
}

} // namespace

run_result optimisedInMemory(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                             const node_parts& nodes, const std::string& parameters) {
    if (morva::osg::planOf(parameters).merges)
        dropBroughtIds(parts);
    const std::string run = withMapInRoot(withExactAtlas(parameters));
    const std::vector<std::string> carried = carriedParts(root, run);
    const morva::sink_scope silent(
        {[](std::string_view) {}, nullptr, [](std::size_t, std::size_t) {}});
    morva::osg::run_record record;
    const ::osg::NodePtr result = runOptimiser(root, run, record);
    memory_watch::check("optimising");
    if (result == ::osg::NullFC)
        throw host_error("the optimiser gave no scene");
    return {::osg::NodeRefPtr(result), result_parts(result, nodes, carried)};
}

void pick(const options& chosen) {
    const model source = readModel(chosen.input);
    tellNotes(source.notes, false);
    refuseFaults(measureScene(source.root.get(), measure::counts), chosen.input);
    if (!chosen.pick.parameters)
        return pickFile(source, chosen);
    tellNotes(parameterNotes(*chosen.pick.parameters), false);
    const morva::osg::run_plan plan = morva::osg::planOf(*chosen.pick.parameters);
    if (plan.merges && !plan.setup.merge.toworld)
        tellNotes({"without toworld the result is not in the world of the file"}, false);
    pickBoth(source, chosen, *chosen.pick.parameters);
}

} // namespace morva::host
