#pragma once

// A tree as text, to the last row of the last property.

#include "tests/support/test.h"

#include <morva/core/morva_osg_tools.h>

namespace morva_test {

template <typename Property> void describeRows(const Property& property, std::ostream& out) {
    for (::osg::UInt32 i = 0; property != ::osg::NullFC && i < property->size(); ++i)
        out << property->getValue(i) << ";";
    out << "|";
}

/// A tree as text: names, hidden ones marked, colours of materials, all properties row by row.
inline void describe(const ::osg::NodePtr& node, std::ostream& out) {
    const ::osg::GeometryPtr core = coreOf(node);
    const char* const name = ::osg::getName(node);
    out << "(" << (name != nullptr ? name : "") << (node->getTravMask() == 0 ? "!" : "");
    if (core != ::osg::NullFC) {
        ::osg::Color4f diffuse, specular, ambient, emission;
        float shininess = 0.0F;
        morva::osg::getColor(core->getMaterial(), diffuse, specular, ambient, emission, shininess);
        const char* const core_name = ::osg::getName(core);
        out << "|" << (core_name != nullptr ? core_name : "") << "|" << diffuse << "|";
        const auto describeAll = [&out](const auto&... all) { (describeRows(all, out), ...); };
        describeAll(core->getTypes(), core->getLengths(), core->getIndices(), core->getPositions(),
                    core->getNormals(), core->getColors(), core->getTexCoords(),
                    core->getTexCoords7());
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        describe(node->getChild(i), out);
    out << ")";
}

} // namespace morva_test
