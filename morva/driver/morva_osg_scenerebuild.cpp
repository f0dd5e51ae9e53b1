#include <morva/driver/morva_osg_scenerebuild.h>

#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <vector>

#include <OpenSG/OSGMaterialMergeGraphOp.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_params.h>
#include <morva/core/morva_osg_scene_rules.h>
#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/driver/morva_osg_scene_placement.h>
#include <morva/idmap/morva_filetools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/merge/morva_osg_geomerge.h>

namespace morva::osg {

namespace {

using parameter_map = std::map<std::string, std::string>;

/// The keys that the driver reads itself; the others are in mergeGeo_setup.
struct driver_keys {
    unsigned int maxtris = 0; ///< triangles per output core; 0: no merge
    bool mostusedmaterial = false;
    bool removelod = false;
    bool removeswitch = false;
    bool idmapinroot = false;
    bool onegeometry = false;
    bool help = false; ///< whether the key is there; its value is not read
    bool has_prefix = false;
    std::string prefix; ///< of generated names, if has_prefix
    std::string idmap;  ///< file of the ID map, without its extension
};

template <class T> void readKey(const parameter_map& parameters, const char* key, T& value) {
    const auto found = parameters.find(key);
    if (found != parameters.end())
        value = string2X<T>(found->second);
}

driver_keys readDriverKeys(const parameter_map& parameters) {
    driver_keys keys;
    readKey(parameters, "maxtris", keys.maxtris);
    readKey(parameters, "mostusedmaterial", keys.mostusedmaterial);
    readKey(parameters, "removelod", keys.removelod);
    readKey(parameters, "removeswitch", keys.removeswitch);
    readKey(parameters, "idmapinroot", keys.idmapinroot);
    readKey(parameters, "onegeometry", keys.onegeometry);
    keys.help = parameters.count("help") != 0;
    const auto prefix = parameters.find("prefix");
    keys.has_prefix = prefix != parameters.end();
    if (keys.has_prefix)
        keys.prefix = prefix->second;
    const auto idmap = parameters.find("idmap");
    if (idmap != parameters.end())
        keys.idmap = idmap->second;
    return keys;
}

// Numbers go through std::to_string: the caller may have changed the format of std::cout.
void printSetting(const char* label, const std::string& value) {
    std::cout << label << value << std::endl;
}
void printSetting(const char* label, int value) { printSetting(label, std::to_string(value)); }

void printSettings(const mergeGeo_setup& setup) {
    printSetting("Cacheopt:       ", setup.cacheopt);
    printSetting("CalcNormals:    ", setup.calcnormals);
    printSetting("Flat:           ", setup.flat);
    printSetting("IDMAP:          ", "\"" + setup.idmap + "\"");
    printSetting("OPT:            ", setup.opt);
    printSetting("OptimizeTC:     ", setup.optimizetc);
    printSetting("TexCoords:      ", setup.texcoords);
    printSetting("ToWorld:        ", setup.toworld);
    printSetting("VertexColor:    ", setup.vertexcolor);
    printSetting("AddColorsTex:   ", setup.addcolorstex);
    printSetting("deleteUnusedTC: ", setup.deleteunusedtc);
    printSetting("mergeSameName:  ", setup.mergesamename);
    printSetting("alphaGeometry:  ", setup.alphageometry);
    printSetting("ignoreMaterial: ", setup.ignorematerial);
    printSetting("keepRenderFalse:", setup.keeprenderfalse);
}

/// Merges equal materials. The operation is kept for the rest of the process, as every caller's
/// materials may be known to it; the list makes that visible to leak checkers.
void mergeEqualMaterials(::osg::NodePtr& root) {
    static std::mutex mutex;
    static std::vector<::osg::MaterialMergeGraphOp*>& kept =
        *new std::vector<::osg::MaterialMergeGraphOp*>;

    auto* operation = new ::osg::MaterialMergeGraphOp("MaterialMerge");
    {
        const std::lock_guard<std::mutex> guard(mutex);
        kept.push_back(operation);
    }
    operation->traverse(root);
}

void runInputStages(const driver_keys& keys, const ::osg::NodePtr& root) {
    if (keys.mostusedmaterial)
        reduceSceneMaterialsToOne(root);
    if (keys.removelod) {
        std::cout << "Removing LOD parts." << std::endl;
        removeLODParts(root);
    }
    if (keys.removeswitch) {
        std::cout << "Removing Switch parts." << std::endl;
        removeSwitchParts(root);
    }
}

::osg::NodePtr runMerge(const driver_keys& keys, const mergeGeo_setup& setup,
                        const ::osg::NodePtr& root) {
    if (keys.maxtris == 0 && !setup.cacheopt)
        return root;
    printSetting("Merge Geometry. Cacheopt: ", setup.cacheopt);
    const kd_build_setup kd{keys.maxtris, 100, 3, 1.0f, 2.0f, 0.95f, false};
    const ::osg::NodePtr result = mergeGeo(root, kd, setup);
    getIDmapHandler().merged = true;
    return result;
}

/// Hands the ID map out: to a file unless the key named none, and to the root on request.
void runIdmap(const driver_keys& keys, const mergeGeo_setup& setup, const ::osg::NodePtr& root,
              const ::osg::NodePtr& result) {
    if (setup.idmap.empty())
        return;
    idmapHandler& handler = getIDmapHandler();
    handler.registerGeometryUsage(result);
    if (!keys.idmap.empty()) {
        std::cout << "Write IDmap with " << std::to_string(handler.names.size()) << " names."
                  << std::endl;
        writeJsonFile(keys.idmap + ".json", handler, root);
    }
    if (keys.idmapinroot)
        addIDmapInfo(result);
}

/// Fits the result into a cube of the size asked for. The map holds its keys in lower case, so
/// that this one is never found: the help text names it, and scenes stay where they are.
void runCenter(const parameter_map& parameters, const ::osg::NodePtr& result) {
    const auto found = parameters.find("centerBB");
    if (found == parameters.end())
        return;
    float size = 0.0F;
    std::istringstream(found->second) >> size;
    transformSceneBB(result, size);
}

/// Everything between taking the root off its parent and putting it back.
::osg::NodePtr runStages(const ::osg::NodePtr& root, std::string& parameters,
                         const scene_guard& guard) {
    const parameter_map map = parseOptTreeParams(parameters);
    driver_keys keys = readDriverKeys(map);
    mergeGeo_setup setup(map);
    setup.silent = true;
    if (keys.maxtris > 10)
        setup.cacheopt = false;

    idmapHandler& handler = getIDmapHandler();
    handler.reset();
    // A map in the root alone needs IDs too, but no file.
    if (keys.idmapinroot && setup.idmap.empty())
        setup.idmap = "metaOnly";
    if (!setup.idmap.empty())
        handler.writeTree(root, 0);

    if (keys.help)
        std::cout << "Available parameters are: " << std::endl << optTreeDoc();
    if (keys.onegeometry) {
        setup.alphageometry = true;
        keys.mostusedmaterial = true;
        // Behind the test of maxtris: one geometry keeps the cache stage that was asked for.
        keys.maxtris = 2000000;
    }
    printSettings(setup);
    runInputStages(keys, root);
    guard.after("stages of the input", root);
    if (keys.has_prefix)
        handler.prefix = keys.prefix;

    const ::osg::NodePtr result = runMerge(keys, setup, root);
    guard.after("merge, input", root);
    guard.after("merge, result", result);
    runIdmap(keys, setup, root, result);
    runCenter(map, result);
    handler.releaseHeldLock();
    return result;
}

} // namespace

::osg::NodePtr optTree(::osg::NodePtr root, std::string parameters) {
    std::cout << "Optimizing Tree..." << std::endl;
    const ::osg::NodePtr parent = root->getParent();
    if (parent != ::osg::NullFC) {
        takeChildOff(parent, static_cast<::osg::UInt32>(parent->findChild(root)));
    }
    const scene_guard guard(root);
    mergeEqualMaterials(root);
    guard.after("merge of equal materials", root);
    if (parameters.empty())
        return root;

    const ::osg::NodePtr result = runStages(root, parameters, guard);
    // The parent gets the input tree back; the optimised scene is what is returned.
    if (parent != ::osg::NullFC)
        addChildTo(parent, root);
    return result;
}

} // namespace morva::osg
