#pragma once

// What a user should know of a run that makes texture atlases.

#include <string>
#include <vector>

#include <morva/driver/morva_osg_run_plan.h>
#include <morva/textures/morva_osg_atlas_record.h>

#include "audit.h"
#include "image_codec.h"

namespace morva::host {

/// The parameters of a run whose atlases change nothing of how a scene looks, unless they name the
/// key. Empty parameters, which ask for no run, stay empty.
std::string withExactAtlas(const std::string& parameters);

/// The side that atlases of a run are asked for: 8192 for one that is out of range.
unsigned int sideOf(const morva::osg::atlas_options& asked);

/// Before the run: one sentence each on what comes with atlases; none for a run without.
std::vector<std::string> atlasNotes(const audit_plan& plan, const std::string& parameters);

/// After the run: one sentence each on what is odd about the atlases that were made.
std::vector<std::string> notesOnAtlases(const morva::osg::atlas_record& record, bool has_ids);

/// After the run: gives atlases without name one, "atlas 0".
void nameAtlases(const morva::osg::atlas_record& record);

/// Codes the atlases as files, so that it is done once for all that are written.
///
/// images   of the files that went in; the atlases join them
/// returns  a sentence if they are larger than the files that went into them; else empty
std::string codeAtlases(const morva::osg::atlas_record& record, image_sources& images);

} // namespace morva::host
