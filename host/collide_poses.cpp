#include "collide_poses.h"

#include "number_text.h"

namespace morva::host {

namespace {

::osg::Matrix matrixOf(const double* numbers) {
    ::osg::Matrix matrix;
    for (::osg::UInt32 row = 0; row < 4; ++row) {
        for (::osg::UInt32 column = 0; column < 4; ++column)
            matrix[column][row] = narrowed(numbers[4 * row + column]);
    }
    // Else most likely a matrix column by column.
    if (numbers[12] != 0.0 || numbers[13] != 0.0 || numbers[14] != 0.0 || numbers[15] != 1.0)
        throw host_error("the last row of a pose is 0 0 0 1", exit_usage);
    return matrix;
}

} // namespace

std::vector<collide_pose> readPoses(const std::string& path) {
    const number_table table = readNumberTable(path, 16, "a pose");
    std::vector<collide_pose> poses;
    for (std::size_t i = 0; i < table.rows(); ++i) {
        const std::size_t line = table.lines[i];
        poses.push_back({atLine(path, line, [&] { return matrixOf(table.row(i)); }), line});
    }
    return poses;
}

} // namespace morva::host
