#include "cell_record.h"

#include <nlohmann/json.hpp>

#include "cell_neighbours.h"
#include "text.h"

namespace morva::host {

namespace {

using morva::osg::cell_box;
using morva::osg::cell_normals;
using morva::osg::cell_share;
using morva::osg::cell_straddle;
using morva::osg::model_cell;
using nlohmann::ordered_json;

ordered_json jsonOf(const ::osg::Pnt3f& place) { return {place[0], place[1], place[2]}; }

ordered_json jsonOf(const cell_box& box) {
    return {{"min", jsonOf(box.low)}, {"max", jsonOf(box.high)}};
}

ordered_json jsonOfTexts(const std::vector<std::string>& texts) {
    ordered_json list = ordered_json::array();
    for (const std::string& text : texts)
        list.push_back(validUtf8(text));
    return list;
}

ordered_json jsonOfCell(const cell_record& record, std::size_t number,
                        const std::vector<std::size_t>& neighbours) {
    const model_cell& cell = record.division.cells[number];
    ordered_json shares = ordered_json::array();
    for (const cell_share& share : cell.shares)
        shares.push_back({{"part", share.part},
                          {"name", validUtf8(record.parts[share.part].name)},
                          {"triangles", share.triangles},
                          {"lines", share.lines},
                          {"points", share.points}});
    return {{"file", record.files[number].path},
            {"bytes", record.files[number].bytes},
            {"box", jsonOf(cell.box)},
            {"space", jsonOf(cell.space)},
            {"triangles", cell.triangles},
            {"lines", cell.lines},
            {"points", cell.points},
            {"above_limit", cell.above_limit},
            {"parts", shares},
            {"neighbours", neighbours}};
}

ordered_json jsonOfParts(const cell_record& record) {
    ordered_json list = ordered_json::array();
    for (std::size_t i = 0; i < record.parts.size(); ++i) {
        const morva::osg::divided_part& part = record.division.parts[i];
        list.push_back({{"name", validUtf8(record.parts[i].name)},
                        {"original_name", validUtf8(record.parts[i].original_name)},
                        {"triangles", part.triangles},
                        {"lines", part.lines},
                        {"points", part.points},
                        {"pieces", part.pieces},
                        {"unplaced", part.unplaced},
                        {"cells", ordered_json::array()}});
    }
    for (std::size_t i = 0; i < record.division.cells.size(); ++i) {
        for (const cell_share& share : record.division.cells[i].shares)
            list[share.part]["cells"].push_back(i);
    }
    return list;
}

ordered_json boxOfAll(const std::vector<model_cell>& cells) {
    cell_box all = cells.front().box;
    for (const model_cell& cell : cells) {
        for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
            all.low[axis] = std::min(all.low[axis], cell.box.low[axis]);
            all.high[axis] = std::max(all.high[axis], cell.box.high[axis]);
        }
    }
    return jsonOf(all);
}

} // namespace

std::string manifestOf(const cell_record& record) {
    const std::vector<model_cell>& cells = record.division.cells;
    const divide_options& asked = record.asked;
    ordered_json file = {{"schema", "morva-cells-1"}};
    file["input"] = {{"path", validUtf8(record.input.path)},
                     {"format", extensionOf(record.input.path)},
                     {"bytes", record.input.bytes}};
    file["limit"] = {{"by", asked.by}, {"value", asked.limit}};
    file["straddle"] = asked.cells.straddle == cell_straddle::cut ? "cut" : "centre";
    file["normals"] = asked.cells.normals == cell_normals::recalc ? "recalc" : "keep";
    file["box"] = boxOfAll(cells);
    file["triangles"] = record.triangles_out;
    const std::vector<std::vector<std::size_t>> neighbours = neighboursOf(cells);
    file["cells"] = ordered_json::array();
    for (std::size_t i = 0; i < cells.size(); ++i)
        file["cells"].push_back(jsonOfCell(record, i, neighbours[i]));
    file["parts"] = jsonOfParts(record);
    file["left_out"] = jsonOfTexts(record.left_out);
    file["notes"] = jsonOfTexts(record.notes);
    return file.dump(1, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

} // namespace morva::host
