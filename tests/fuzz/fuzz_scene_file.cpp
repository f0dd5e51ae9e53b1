// Any bytes as a scene file. What is read can be walked and written, and reads back to the same
// bytes; a read holds no more than a multiple of the file.

#include "entry.h"

#include <sstream>

#include <OpenSG/OSGSceneFileHandler.h>
#include <OpenSG/OSGTriangleIterator.h>

#include "tests/support/shortage.h"

namespace {

std::string written(const ::osg::NodePtr& root) {
    std::ostringstream out;
    fuzz::require(::osg::SceneFileHandler::the().write(root, out, "osb"), "cannot be written");
    return out.str();
}

::osg::NodeRefPtr readFrom(const std::string& bytes) {
    std::istringstream in(bytes);
    return ::osg::NodeRefPtr(::osg::SceneFileHandler::the().read(in, "osb", nullptr));
}

/// Pictures expand to 2,048 bytes per byte and are held twice meanwhile, other things little.
std::size_t mostFor(const std::string& bytes) {
    const bool picture = bytes.find("\x89PNG") != std::string::npos ||
                         bytes.find("\xFF\xD8\xFF") != std::string::npos;
    return (picture ? 5000 : 64) * bytes.size() + (1U << 20);
}

void walk(const ::osg::NodePtr& root) {
    root->updateVolume();
    for (::osg::UInt32 i = 0; i < root->getNChildren(); ++i) {
        int triangles = 0;
        for (::osg::TriangleIterator it(root->getChild(i)); !it.isAtEnd() && ++triangles < 1000;
             ++it) {
            for (::osg::Int32 corner = 0; corner < 3; ++corner)
                it.getPosition(corner);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const fuzz::no_strays all_go;
    ::osg::NodeRefPtr root;
    const std::size_t most = morva_test::shortage::mostHeldBy([&] { root = readFrom(bytes); });
    fuzz::require(most <= mostFor(bytes), "a read held " + std::to_string(most) + " bytes");
    if (root == ::osg::NullFC)
        return 0;
    walk(root);
    const std::string first = written(root);
    const ::osg::NodeRefPtr again = readFrom(first);
    fuzz::require(again != ::osg::NullFC, "what was written cannot be read");
    fuzz::require(written(again) == first, "what was read back is written in another way");
    return 0;
}
