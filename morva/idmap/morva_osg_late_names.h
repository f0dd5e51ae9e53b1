#pragma once

// Generated names of geometry that is made side by side.
//
// The number in a generated name counts what was made before it, and a worker does not know what
// the others make. So its nodes wait until it is known:
//
//     late_names names;                                      worker 1   worker 2
//     {                                                      a b        c
//         const late_names::scope here(&names);              wait       wait
//         ...                                                   join 1, join 2
//         nameGeometry(node, &idmapHandler::getNext...);     MG_0 MG_1  MG_2
//     }
//     names.give();                // by whoever joins the workers, in their order
//
// Where no scope is open nameGeometry() draws at once. One thread at a time; what the worker
// filled is read after it has ended.

#include <deque>
#include <string>
#include <utility>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_export.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace morva::osg {

/// One of the two operations of the handler that draw a name.
using name_source = std::string (idmapHandler::*)();

/// Nodes that wait for their names, in the order of asking. Holds them: what was made and dropped
/// again has used up its number all the same.
class MORVA_API late_names {
  public:
    /// Lets all nodes that this thread names meanwhile wait in `names`; null changes nothing.
    class MORVA_API scope {
      public:
        explicit scope(late_names* names);
        scope(const scope&) = delete;
        scope& operator=(const scope&) = delete;
        ~scope();

      private:
        late_names* before_;
    };

    /// Draws the names, one by one, and forgets the nodes.
    void give();

    /// Forgets the nodes, for which there is no use.
    void clear() { waiting_.clear(); }

  private:
    friend void nameGeometry(const ::osg::NodePtr& node, name_source source);
    std::deque<std::pair<::osg::NodeRefPtr, name_source>> waiting_;
};

/// Gives a node and its core the next name: at once, or in a scope of this thread when the names
/// that wait are given; until then any other stands there.
MORVA_API void nameGeometry(const ::osg::NodePtr& node, name_source source);

} // namespace morva::osg
