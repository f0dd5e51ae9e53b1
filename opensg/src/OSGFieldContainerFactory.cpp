#include "OpenSG/OSGFieldContainerFactory.h"

#include "OpenSG/OSGLog.h"

OSG_BEGIN_NAMESPACE

FieldContainerFactory* FieldContainerFactory::the() {
    static FieldContainerFactory* factory = new FieldContainerFactory;
    return factory;
}

FieldContainerType* FieldContainerFactory::findType(UInt32 typeId) const {
    const std::lock_guard<std::mutex> guard(_mutex);
    const auto found = _types.find(typeId);
    return found == _types.end() ? nullptr : found->second;
}

FieldContainerType* FieldContainerFactory::findType(const Char8* name, UInt32) const {
    if (name == nullptr)
        return nullptr;
    const std::lock_guard<std::mutex> guard(_mutex);
    const auto found = _typesByName.find(name);
    return found == _typesByName.end() ? nullptr : found->second;
}

UInt16 FieldContainerFactory::findGroupId(const Char8* name) const {
    if (name == nullptr)
        return 0;
    const std::lock_guard<std::mutex> guard(_mutex);
    const auto found = _groups.find(name);
    return found == _groups.end() ? UInt16(0) : found->second;
}

const Char8* FieldContainerFactory::findGroupName(UInt16 groupId) const {
    const std::lock_guard<std::mutex> guard(_mutex);
    for (const auto& group : _groups) {
        if (group.second == groupId)
            return group.first.c_str();
    }
    return nullptr;
}

UInt32 FieldContainerFactory::getNumTypes() const {
    const std::lock_guard<std::mutex> guard(_mutex);
    return static_cast<UInt32>(_types.size());
}

FieldContainerPtr FieldContainerFactory::createFieldContainer(const Char8* name) const {
    const FieldContainerType* type = findType(name);
    return type != nullptr ? type->createFieldContainer() : FieldContainerPtr();
}

FieldContainerPtr FieldContainerFactory::createNode(const Char8* name) const {
    const FieldContainerType* type = findType(name);
    return type && type->isNode() ? type->createFieldContainer() : FieldContainerPtr();
}

FieldContainerPtr FieldContainerFactory::createNodeCore(const Char8* name) const {
    const FieldContainerType* type = findType(name);
    return type && type->isNodeCore() ? type->createFieldContainer() : FieldContainerPtr();
}

FieldContainerPtr FieldContainerFactory::createAttachment(const Char8* name) const {
    const FieldContainerType* type = findType(name);
    return type && type->isAttachment() ? type->createFieldContainer() : FieldContainerPtr();
}

FieldContainerPtr FieldContainerFactory::getContainer(UInt32 containerId) const {
    const std::lock_guard<std::mutex> guard(_mutex);
    const auto found = _containers.find(containerId);
    return found == _containers.end() ? FieldContainerPtr() : found->second;
}

void FieldContainerFactory::enterType(FieldContainerType& type) {
    const std::lock_guard<std::mutex> guard(_mutex);
    if (!_typesByName.emplace(type.getCName(), &type).second) {
        SWARNING << "A container type named " << type.getCName() << " exists already." << endLog;
        return;
    }
    _types[type.getId()] = &type;
}

UInt16 FieldContainerFactory::enterGroup(const Char8* name) {
    const std::lock_guard<std::mutex> guard(_mutex);
    const UInt16 next = static_cast<UInt16>(_groups.size() + 1);
    return _groups.emplace(name, next).first->second;
}

FieldContainerPtr FieldContainerFactory::enterContainer(UInt8* store, UInt16 bytes) {
    const std::lock_guard<std::mutex> guard(_mutex);
    reinterpret_cast<ContainerHead*>(store - sizeof(ContainerHead))->id = ++_lastContainerId;
    const FieldContainerPtr container = FieldContainerPtr::ofBlock(store, bytes);
    _containers.emplace(_lastContainerId, container);
    return container;
}

void FieldContainerFactory::leaveContainer(UInt32 containerId) {
    const std::lock_guard<std::mutex> guard(_mutex);
    _containers.erase(containerId);
}

OSG_END_NAMESPACE
