// Names that headers of other things do not bring along: they are free here.

#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGLine.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>

namespace osg {

enum class Quaternion;
enum class BoxVolume;
enum class SFVec3f;
enum class GeoPTypesUI16;
enum class GeoPTypesUI32;

} // namespace osg
