#include "glb_reader.h"

#include <utility>
#include <vector>

#include "assimp_import.h"
#include "glb_outline.h"
#include "glb_values.h"
#include "gltf_document.h"
#include "host_error.h"
#include "material_record.h"

namespace morva::host {

namespace {

void readPlain(const gltf_document& document, model& target) {
    const glb_outline outline = outlineOf(document);
    glb_values values(document, outline.primitives);
    const std::vector<::osg::MaterialRefPtr> materials = importScene(
        *outline.scene, std::string(), target, [&](unsigned mesh, unsigned coordinate_set) {
            return values.coreOf(mesh, coordinate_set);
        });
    values.fill();
    keepRecords(document, materials, target);
}

} // namespace

bool readGlb(const std::string& path, model& target) {
    model attempt;
    attempt.file_bytes = target.file_bytes;
    attempt.files_read = target.files_read;
    try {
        readPlain(gltf_document(path), attempt);
    } catch (const host_error&) {
        return false;
    }
    target = std::move(attempt);
    return true;
}

} // namespace morva::host
