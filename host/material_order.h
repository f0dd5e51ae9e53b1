#pragma once

// Which material of a glTF file is which of the import library.

#include <vector>

#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGRefPtr.h>

#include "gltf_document.h"

namespace morva::host {

/// The import library numbers materials as it comes upon them: nodes of the scene depth first, each
/// behind its children. This puts them back into the order of the file; one whose name is not that
/// of its place is left out, unless the name is there once.
///
/// by_use   the import library's, null where nothing uses one
/// returns  one per material of the file, null where it is not known
std::vector<::osg::RefPtr<::osg::MaterialPtr>>
inFileOrder(const gltf_document& document,
            const std::vector<::osg::RefPtr<::osg::MaterialPtr>>& by_use);

} // namespace morva::host
