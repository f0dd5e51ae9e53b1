#pragma once

// Trees of everything that the automatic passes tell apart.

#include "tests/support/test.h"

namespace morva_test {

/// Materials of every kind, by the names of their meshes and groups.
struct palette {
    ::osg::MaterialRefPtr red{simple({1, 0, 0})}, blue{simple({0, 0, 1})},
        glass{chunked({1, 1, 1, 0.5F})}, cube{cubeTextured()},
        choice{choiceOf(0, {simple({0, 1, 0})})},
        image{chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 4, 4))},
        grey{chunked({1, 1, 0, 1}, imageOf(::osg::Image::OSG_L_PF, 8, 4))};
    material_map names{{"red", red.get()},   {"blue", blue.get()},     {"glass", glass.get()},
                       {"cube", cube.get()}, {"choice", choice.get()}, {"image", image.get()},
                       {"grey", grey.get()}};
};

/// A tree as text for sceneOf(), with these materials.
inline std::string randomScene(std::mt19937& rng, int depth) {
    static const char* const meshes[] = {"red",  "blue",  "glass", "cube",  "choice",
                                         "none", "image", "grey",  "lines", "points"};
    const std::string mask = rng() % 10 == 0 ? "!" : "";
    if (depth == 0 || rng() % 3 == 0)
        return mask + meshes[rng() % 10];
    static const char* const groups[] = {"g", "~t", "$red", "$choice", "?0s", "%l", "g", "~t"};
    std::string text =
        mask + (rng() % 6 == 0 ? std::string("#") + meshes[rng() % 10] : groups[rng() % 8]) + "(";
    for (unsigned count = 1 + rng() % 3; count > 0; --count)
        text += randomScene(rng, depth - 1) + (count > 1 ? " " : "");
    return text + ")";
}

} // namespace morva_test
