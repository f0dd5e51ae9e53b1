// main() of every benchmark program: the scene graph must be up before the first scene.

#include <benchmark/benchmark.h>

#include <OpenSG/OSGBaseFunctions.h>

int main(int argc, char** argv) {
    ::osg::osgInit(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
