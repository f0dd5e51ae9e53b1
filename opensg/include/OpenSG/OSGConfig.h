#pragma once

// Names and marks that every header of the scene layer begins with.

#define OSG osg
#define OSG_BASE_DLLMAPPING __attribute__((visibility("default")))
#define OSG_SYSTEMLIB_DLLMAPPING OSG_BASE_DLLMAPPING

// Applications may compile with hidden visibility; the layer's types stay visible in them, so that
// a type is one type in every shared object.
#define OSG_BEGIN_NAMESPACE namespace osg __attribute__((visibility("default"))) {
#define OSG_END_NAMESPACE }
#define OSG_USING_NAMESPACE using namespace osg;
#define OSG_STD std
#define OSG_USING_STD_NAMESPACE using namespace std;

#define OSG_VERSION 0x010800
#define OSG_VERSION_STRING "1.8.0"
