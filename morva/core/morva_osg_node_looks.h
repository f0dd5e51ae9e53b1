#pragma once

// What a node is besides core and children: name, mask, attachments. For passes that put one node
// in the place of another.

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_edits.h>

namespace morva::osg {

/// Gives `to` the mask and the attachments of `from`, and its name if it has one. The name is a
/// copy: a change of one is none of the other. Other attachments are shared; `to` keeps those that
/// it has besides.
inline void takeOverLooks(const ::osg::NodePtr& to, const ::osg::NodePtr& from) {
    const open_edit edit(to);
    to->setTravMask(from->getTravMask());
    for (const auto& [key, attachment] : from->getSFAttachments()->getValue()) {
        if (::osg::NamePtr::dcast(attachment) == ::osg::NullFC)
            to->addAttachment(attachment, static_cast<::osg::UInt16>(key & 0xffffU));
    }
    if (const ::osg::Char8* name = ::osg::getName(from))
        ::osg::setName(to, name);
}

} // namespace morva::osg
