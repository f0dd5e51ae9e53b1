#include "glb_reader.h"

#include <memory>
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
    glb_outline outline = outlineOf(document);
    glb_values values(document, outline.primitives);
    handed_scene source;
    source.scene = std::move(outline.scene);
    source.meshes = source.scene->mNumMeshes;
    source.rest.cameras = source.scene->mNumCameras;
    const auto next = [&source](unsigned mesh) {
        const aiMesh& from = *source.scene->mMeshes[mesh];
        auto made = std::make_unique<handed_mesh>();
        made->mesh.mName = from.mName;
        made->mesh.mMaterialIndex = from.mMaterialIndex;
        return made;
    };
    const std::vector<::osg::MaterialRefPtr> materials =
        importScene(source, std::string(), next, target,
                    [&](unsigned mesh, unsigned set) { return values.coreOf(mesh, set); });
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
