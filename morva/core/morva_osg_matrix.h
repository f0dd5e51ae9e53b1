#pragma once

// Questions about matrices that the scene graph answers in its own way. Any thread.

#include <OpenSG/OSGMatrix.h>

namespace morva::osg {

/// Whether a matrix is the identity to the last bit; a NaN is none. The scene graph's comparison
/// allows for some rounding.
inline bool isIdentity(const ::osg::Matrix& matrix) {
    for (::osg::UInt32 column = 0; column < 4; ++column) {
        for (::osg::UInt32 row = 0; row < 4; ++row) {
            if (!(matrix[column][row] == (row == column ? 1.0F : 0.0F)))
                return false;
        }
    }
    return true;
}

} // namespace morva::osg
