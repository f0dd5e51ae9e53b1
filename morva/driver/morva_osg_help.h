#pragma once

// The help text on the parameters, for the roads that print it.

namespace morva::osg {

/// Says a headline and optTreeDoc().
void sayHelp();

} // namespace morva::osg
