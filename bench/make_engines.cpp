// morva_make_engines COUNT OUT.glb: writes COUNT engines, every part with its own geometry written
// out. With 16: 46 MB, 1,943,936 triangles, 1,840 parts, 34 materials.

#include <cstdlib>
#include <exception>
#include <iostream>

#include <OpenSG/OSGBaseFunctions.h>

#include "model_export.h"
#include "scenes.h"

int main(int argc, char** argv) {
    ::osg::osgInit(argc, argv);
    const long count = argc == 3 ? std::strtol(argv[1], nullptr, 10) : 0;
    if (count < 1 || count > 10000) {
        std::cerr << "usage: morva_make_engines COUNT OUT.glb\n";
        return 2;
    }
    try {
        const auto root = morva_bench::engineGrid(static_cast<unsigned>(count), true);
        morva::host::writeModel(root.get(), morva::host::image_sources(), argv[2]);
    } catch (const std::exception& error) {
        std::cerr << "morva_make_engines: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
