#include "test.h"

#include <cctype>

namespace morva_test {

namespace {

/// One of `steps` values from `from` on, a quarter apart: exact in single precision.
float quarter(std::mt19937& rng, unsigned steps, float from = 0.0F) {
    return from + float(rng() % steps) * 0.25F;
}

::osg::Pnt3f gridPoint(std::mt19937& rng) {
    const float x = quarter(rng, 9, -1.0F), y = quarter(rng, 9, -1.0F), z = quarter(rng, 5, -0.5F);
    return {x, y, z};
}

template <typename Property, typename Value>
typename Property::PtrType propertyIfAny(const std::vector<Value>& values) {
    return values.empty() ? typename Property::PtrType() : propertyOf<Property>(values);
}

/// Gives each position a value that `make` draws.
template <typename Value, typename Make>
void fill(std::vector<Value>& values, const mesh_data& mesh, const Make& make) {
    values.resize(mesh.positions.size());
    std::generate(values.begin(), values.end(), make);
}

/// A length that the mode can be cut into without a rest.
unsigned wholeLength(unsigned mode, unsigned about) {
    const unsigned factor[10] = {1, 2, 1, 1, 3, 1, 1, 4, 2, 1};
    const unsigned more[10] = {0, 0, 2, 2, 0, 3, 3, 0, 4, 3};
    return about * factor[mode] + more[mode];
}

/// One primitive, whose vertices stand where `place` puts them.
template <typename Place> mesh_data oneRun(unsigned mode, std::size_t vertices, Place place) {
    mesh_data mesh;
    mesh.primitives = {{mode, unsigned(vertices)}};
    for (std::size_t i = 0; i < vertices; ++i)
        mesh.positions.push_back(place(i));
    return mesh;
}

std::vector<::osg::UInt32> randomRows(std::mt19937& rng, std::size_t count, std::size_t rows) {
    std::vector<::osg::UInt32> indices(count);
    for (::osg::UInt32& index : indices)
        index = ::osg::UInt32(rng() % rows);
    return indices;
}

} // namespace

mesh_data soup(std::mt19937& rng, std::size_t count) {
    mesh_data mesh;
    mesh.primitives = {{4, unsigned(3 * count)}};
    for (std::size_t i = 0; i < count; ++i) {
        const ::osg::Pnt3f a = gridPoint(rng), b = gridPoint(rng), c = gridPoint(rng);
        mesh.positions.insert(mesh.positions.end(), {a, b, rng() % 8 == 0 ? a : c});
    }
    return mesh;
}

mesh_data quads(std::size_t count) {
    return oneRun(7, 4 * count, [](std::size_t i) {
        const std::size_t right = i % 4 == 1 || i % 4 == 2 ? 1 : 0;
        return ::osg::Pnt3f(float(i / 4 + right), i % 4 < 2 ? 0.0F : 1.0F, 0.0F);
    });
}

mesh_data strip(std::size_t vertices, unsigned mode) {
    return oneRun(mode, vertices,
                  [](std::size_t i) { return ::osg::Pnt3f(float(i / 2), float(i % 2), 0.0F); });
}

mesh_data fan(std::size_t vertices, unsigned mode) {
    return oneRun(mode, vertices, [](std::size_t i) {
        const float angle = float(i) * 0.3F;
        const float radius = i == 0 ? 0.0F : 1.0F;
        return ::osg::Pnt3f(radius * std::cos(angle), radius * std::sin(angle), 0.0F);
    });
}

mesh_data row(std::size_t vertices, unsigned mode) {
    return oneRun(mode, vertices, [](std::size_t i) { return ::osg::Pnt3f(float(i), 0.0F, 0.0F); });
}

mesh_data cube() {
    mesh_data mesh;
    mesh.primitives = {{4, 36}};
    for (unsigned i = 0; i < 8; ++i) {
        mesh.positions.emplace_back(float(i & 1), float(i >> 1 & 1), float(i >> 2 & 1));
    }
    mesh.normals = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 1}};
    // Corners of each face, counter-clockwise from outside; bit k of a corner is its axis k.
    const ::osg::UInt32 faces[6][4] = {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4},
                                       {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}};
    for (::osg::UInt32 face = 0; face < 6; ++face) {
        for (const unsigned corner : {0, 1, 2, 0, 2, 3})
            mesh.indices.insert(mesh.indices.end(), {faces[face][corner], face});
    }
    mesh.mapping = {::osg::Geometry::MapPosition, ::osg::Geometry::MapNormal};
    return mesh;
}

mesh_data mixture(std::mt19937& rng, std::size_t primitives) {
    mesh_data mesh;
    for (std::size_t i = 0; i < primitives; ++i) {
        const unsigned mode = unsigned(rng() % 10);
        mesh.primitives.emplace_back(mode, wholeLength(mode, unsigned(rng() % 5)));
    }
    mesh.positions.resize(vertexCount(mesh));
    for (::osg::Pnt3f& position : mesh.positions)
        position = gridPoint(rng);
    return mesh;
}

mesh_data withNormals(mesh_data mesh, std::mt19937& rng) {
    const ::osg::Vec3f choice[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, -1}, {0.6F, 0.8F, 0}};
    fill(mesh.normals, mesh, [&] { return choice[rng() % 5]; });
    return mesh;
}

mesh_data withColors(mesh_data mesh, std::mt19937& rng) {
    fill(mesh.colors, mesh, [&] {
        const float red = quarter(rng, 3);
        return ::osg::Color3f(red, quarter(rng, 2), 1);
    });
    return mesh;
}

mesh_data withCoordinates(mesh_data mesh, std::mt19937& rng) {
    fill(mesh.coordinates, mesh, [&] {
        const float first = quarter(rng, 5);
        return ::osg::Vec2f(first, quarter(rng, 2));
    });
    return mesh;
}

mesh_data withIds(mesh_data mesh, std::size_t run) {
    mesh.ids.resize(mesh.positions.size());
    for (std::size_t i = 0; i < mesh.ids.size(); ++i)
        mesh.ids[i] = float(i / run);
    return mesh;
}

mesh_data withAttributes(mesh_data mesh, std::mt19937& rng) {
    mesh = withColors(withNormals(std::move(mesh), rng), rng);
    return withIds(withCoordinates(std::move(mesh), rng));
}

std::size_t vertexCount(const mesh_data& mesh) {
    std::size_t count = 0;
    for (const auto& [mode, length] : mesh.primitives)
        count += length;
    return count;
}

mesh_data withIndex(mesh_data mesh, std::mt19937& rng) {
    if (!mesh.positions.empty())
        mesh.indices = randomRows(rng, vertexCount(mesh), mesh.positions.size());
    return mesh;
}

mesh_data withIndexPerProperty(mesh_data mesh, std::mt19937& rng) {
    using ::osg::Geometry;
    const std::pair<bool, ::osg::UInt16> properties[] = {
        {mesh.positions.empty(), Geometry::MapPosition},
        {mesh.normals.empty(), Geometry::MapNormal},
        {mesh.colors.empty(), Geometry::MapColor},
        {mesh.secondary.empty(), Geometry::MapSecondaryColor},
        {mesh.coordinates.empty(), Geometry::MapTexCoords},
        {mesh.ids.empty(), Geometry::MapTexCoords7}};
    mesh.mapping.clear();
    for (const auto& [missing, bit] : properties) {
        if (!missing)
            mesh.mapping.push_back(bit);
    }
    if (!mesh.positions.empty()) {
        mesh.indices =
            randomRows(rng, vertexCount(mesh) * mesh.mapping.size(), mesh.positions.size());
    }
    return mesh;
}

::osg::GeometryPtr geometryOf(const mesh_data& mesh, const ::osg::MaterialPtr& material) {
    std::vector<::osg::UInt8> modes;
    std::vector<::osg::UInt32> lengths;
    for (const auto& [mode, length] : mesh.primitives) {
        modes.push_back(::osg::UInt8(mode));
        lengths.push_back(length);
    }
    const ::osg::GeometryPtr geometry = ::osg::Geometry::create();
    geometry->setTypes(propertyIfAny<::osg::GeoPTypesUI8>(modes));
    geometry->setLengths(propertyIfAny<::osg::GeoPLengthsUI32>(lengths));
    geometry->setPositions(propertyIfAny<::osg::GeoPositions3f>(mesh.positions));
    geometry->setNormals(propertyIfAny<::osg::GeoNormals3f>(mesh.normals));
    geometry->setColors(propertyIfAny<::osg::GeoColors3f>(mesh.colors));
    geometry->setSecondaryColors(propertyIfAny<::osg::GeoColors3f>(mesh.secondary));
    geometry->setTexCoords(propertyIfAny<::osg::GeoTexCoords2f>(mesh.coordinates));
    geometry->setTexCoords7(propertyIfAny<::osg::GeoTexCoords1f>(mesh.ids));
    geometry->setIndices(propertyIfAny<::osg::GeoIndicesUI32>(mesh.indices));
    for (const ::osg::UInt16 bits : mesh.mapping)
        geometry->editMFIndexMapping()->push_back(bits);
    geometry->setMaterial(material);
    return geometry;
}

::osg::GeometryPtr everyProperty(unsigned count, unsigned other, unsigned other_count) {
    mesh_data lists;
    lists.primitives = {{4, count}};
    const ::osg::GeometryPtr geometry = geometryOf(lists);
    unsigned bit = 1;
    const auto sized = [&](const auto& property) {
        property->resize(bit == other ? other_count : count);
        bit *= 2;
        return property;
    };
    geometry->setPositions(sized(::osg::GeoPositions3f::create()));
    geometry->setNormals(sized(::osg::GeoNormals3f::create()));
    geometry->setColors(sized(::osg::GeoColors3f::create()));
    geometry->setSecondaryColors(sized(::osg::GeoColors3f::create()));
    geometry->setTexCoords(sized(::osg::GeoTexCoords2f::create()));
    geometry->setTexCoords1(sized(::osg::GeoTexCoords2f::create()));
    geometry->setTexCoords2(sized(::osg::GeoTexCoords2f::create()));
    geometry->setTexCoords3(sized(::osg::GeoTexCoords2f::create()));
    geometry->setTexCoords4(sized(::osg::GeoTexCoords2f::create()));
    geometry->setTexCoords5(sized(::osg::GeoTexCoords2f::create()));
    geometry->setTexCoords6(sized(::osg::GeoTexCoords2f::create()));
    geometry->setTexCoords7(sized(::osg::GeoTexCoords1f::create()));
    return geometry;
}

void storeOtherwise(const ::osg::GeometryPtr& geometry) {
    using namespace ::osg;
    geometry->setPositions(inOtherForm<GeoPositions3d>(geometry->getPositions()));
    geometry->setNormals(inOtherForm<GeoNormals3b>(geometry->getNormals()));
    geometry->setColors(inOtherForm<GeoColors4ub>(geometry->getColors()));
    geometry->setSecondaryColors(inOtherForm<GeoColors4f>(geometry->getSecondaryColors()));
    geometry->setTexCoords(inOtherForm<GeoTexCoords3f>(geometry->getTexCoords()));
    geometry->setTexCoords7(inOtherForm<GeoTexCoords2f>(geometry->getTexCoords7()));
    geometry->setIndices(inOtherForm<GeoIndicesUI16>(geometry->getIndices()));
    geometry->setLengths(inOtherForm<GeoPLengthsUI16>(geometry->getLengths()));
}

::osg::NodePtr nodeOf(const ::osg::NodeCorePtr& core, const node_list& children) {
    const ::osg::NodePtr node = ::osg::Node::create();
    node->setCore(core);
    for (const ::osg::NodePtr& child : children)
        node->addChild(child);
    return node;
}

::osg::NodePtr meshNode(const mesh_data& mesh, const ::osg::MaterialPtr& material) {
    return nodeOf(geometryOf(mesh, material));
}

::osg::NodePtr group(const node_list& children) { return nodeOf(::osg::Group::create(), children); }

::osg::NodePtr transformed(const ::osg::Matrix& matrix, const node_list& children) {
    const ::osg::TransformPtr core = ::osg::Transform::create();
    core->setMatrix(matrix);
    return nodeOf(core, children);
}

::osg::NodePtr moved(const ::osg::Vec3f& by, const node_list& children) {
    ::osg::Matrix matrix;
    matrix.setTranslate(by);
    return transformed(matrix, children);
}

::osg::NodePtr switched(int choice, const node_list& children) {
    const ::osg::SwitchPtr core = ::osg::Switch::create();
    core->setChoice(choice);
    return nodeOf(core, children);
}

::osg::NodePtr detailed(const node_list& children) {
    const ::osg::DistanceLODPtr core = ::osg::DistanceLOD::create();
    for (std::size_t i = 0; i < children.size(); ++i)
        core->editMFRange()->push_back(10.0F * float(i + 1));
    return nodeOf(core, children);
}

::osg::NodePtr materialGroup(const ::osg::MaterialPtr& material, const node_list& children) {
    const ::osg::MaterialGroupPtr core = ::osg::MaterialGroup::create();
    core->setMaterial(material);
    return nodeOf(core, children);
}

::osg::NodePtr named(const std::string& name, const ::osg::NodePtr& node) {
    ::osg::setName(node, name);
    return node;
}

::osg::NodePtr hidden(const ::osg::NodePtr& node) {
    node->setTravMask(0);
    return node;
}

namespace {

/// Reads one node of a scene text; `at` moves behind it.
::osg::NodePtr readNode(const char*& at, const material_map& materials) {
    const auto take = [&at](auto is_wanted) {
        std::string taken;
        while (is_wanted(*at))
            taken += *at++;
        return taken;
    };
    const std::string marks = take([](char c) { return c != '\0' && std::isalpha(c) == 0; });
    const std::string name = take([](char c) { return c == '_' || std::isalnum(c) != 0; });
    const auto has = [&marks](char mark) { return marks.find(mark) != std::string::npos; };

    const bool is_mesh = *at != '(' || has('#');
    node_list children;
    if (*at == '(') {
        for (++at; *at != ')';)
            children.push_back(readNode(at += *at == ' ' ? 1 : 0, materials));
        ++at;
    }
    const auto entry = materials.find(name);
    const ::osg::MaterialPtr material =
        entry != materials.end() ? entry->second : ::osg::MaterialPtr();
    const ::osg::NodePtr node =
        has('~')   ? moved({1, 0, 0}, children)
        : has('?') ? switched(std::stoi(marks.substr(marks.find('?') + 1)), children)
        : has('%') ? detailed(children)
        : has('$') ? materialGroup(material, children)
        : has('.') ? nodeOf(::osg::NullFC, children)
        : is_mesh  ? nodeOf(geometryOf(quads(1), material), children)
                   : group(children);
    return named(name, has('!') ? hidden(node) : node);
}

} // namespace

::osg::NodePtr sceneOf(const std::string& text, const material_map& materials) {
    const char* at = text.c_str();
    return readNode(at, materials);
}

std::string textOf(const ::osg::NodePtr& node) {
    const char* name = ::osg::getName(node);
    std::string text = name != nullptr ? name : "-";
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        text += (i == 0 ? "(" : " ") + textOf(node->getChild(i));
    return node->getNChildren() == 0 ? text : text + ")";
}

::osg::NodePtr nodeNamed(const ::osg::NodePtr& root, const std::string& name) {
    const char* own = ::osg::getName(root);
    if (own != nullptr && name == own)
        return root;
    for (::osg::UInt32 i = 0; i < root->getNChildren(); ++i) {
        const ::osg::NodePtr found = nodeNamed(root->getChild(i), name);
        if (found != ::osg::NullFC)
            return found;
    }
    return ::osg::NullFC;
}

::osg::SimpleMaterialPtr simple(const ::osg::Color3f& diffuse) {
    const ::osg::SimpleMaterialPtr material = ::osg::SimpleMaterial::create();
    material->setDiffuse(diffuse);
    return material;
}

::osg::ChunkMaterialPtr chunked(const ::osg::Color4f& diffuse, const ::osg::ImagePtr& image) {
    const ::osg::ChunkMaterialPtr material = ::osg::ChunkMaterial::create();
    const ::osg::MaterialChunkPtr colors = ::osg::MaterialChunk::create();
    colors->setDiffuse(diffuse);
    material->addChunk(colors);
    if (image != ::osg::NullFC) {
        const ::osg::TextureChunkPtr texture = ::osg::TextureChunk::create();
        ::osg::ImagePtr passed = image; // some releases take the image by reference
        texture->setImage(passed);
        material->addChunk(texture);
    }
    return material;
}

::osg::ChunkMaterialPtr bareMaterial() { return ::osg::ChunkMaterial::create(); }

::osg::ChunkMaterialPtr cubeTextured() {
    const ::osg::ChunkMaterialPtr material = ::osg::ChunkMaterial::create();
    material->addChunk(::osg::CubeTextureChunk::create());
    return material;
}

::osg::SwitchMaterialPtr choiceOf(::osg::UInt32 choice,
                                  const std::vector<::osg::MaterialPtr>& materials) {
    const ::osg::SwitchMaterialPtr material = ::osg::SwitchMaterial::create();
    for (const ::osg::MaterialPtr& one : materials)
        material->addMaterial(one);
    material->setChoice(choice);
    return material;
}

::osg::ImagePtr imageOf(::osg::UInt32 format, int width, int height, std::uint8_t value) {
    const std::size_t most_bytes = 4 * std::size_t(width * height);
    const std::vector<::osg::UInt8> pixels(most_bytes, value);
    const ::osg::ImagePtr image = ::osg::Image::create();
    image->set(format, width, height, 1, 1, 1, 0.0, pixels.data());
    return image;
}

::osg::GeometryPtr coreOf(const ::osg::NodePtr& node) {
    if (node == ::osg::NullFC)
        return ::osg::NullFC;
    return ::osg::GeometryPtr::dcast(node->getCore());
}

node_list geometryNodes(const ::osg::NodePtr& root) {
    node_list list;
    if (coreOf(root) != ::osg::NullFC)
        list.push_back(root);
    for (::osg::UInt32 i = 0; root != ::osg::NullFC && i < root->getNChildren(); ++i) {
        const node_list below = geometryNodes(root->getChild(i));
        list.insert(list.end(), below.begin(), below.end());
    }
    return list;
}

std::vector<std::string> namesOf(const node_list& nodes) {
    std::vector<std::string> names;
    for (const ::osg::NodePtr& node : nodes) {
        const char* name = ::osg::getName(node);
        names.emplace_back(name != nullptr ? name : "");
    }
    return names;
}

} // namespace morva_test
