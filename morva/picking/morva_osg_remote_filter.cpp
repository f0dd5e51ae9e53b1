// Compiled as C++14, which is all that the platform's header can take: this file includes nothing
// of ours, and its one function is declared where it is called.

#include <OpenSG/OSGConfig.h>
#include <OpenSG/OSGRemoteAspect.h>

namespace morva {
namespace osg {

void keepFromRemoteAspects(::osg::UInt32 type, ::osg::BitVector fields);

void keepFromRemoteAspects(::osg::UInt32 type, ::osg::BitVector fields) {
    ::osg::RemoteAspect::addFieldFilter(type, fields);
}

} // namespace osg
} // namespace morva
