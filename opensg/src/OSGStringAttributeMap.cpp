#include "OpenSG/OSGStringAttributeMap.h"

#include <utility>

OSG_BEGIN_NAMESPACE

OSG_CONTAINER_DEF(StringAttributeMap, nullptr,
                  OSG_FIELD_DESC(StringAttributeMap, _mfKeys, "keys", Keys, false),
                  OSG_FIELD_DESC(StringAttributeMap, _mfValues, "values", Values, false))

std::size_t StringAttributeMap::placeOf(const std::string& key) const {
    if (_places.size() != _mfKeys.size()) {
        _places.clear();
        for (std::size_t i = 0; i < _mfKeys.size(); ++i)
            _places.emplace(_mfKeys[i], i);
    }
    const auto found = _places.find(key);
    // A file may hold fewer values than keys; a key without a value counts as absent.
    if (found == _places.end() || found->second >= _mfValues.size())
        return _mfKeys.size();
    return found->second;
}

std::string& StringAttributeMap::operator[](const std::string& key) {
    const std::size_t place = placeOf(key);
    if (place < _mfKeys.size())
        return _mfValues[place];
    _places[key] = _mfKeys.size();
    _mfKeys.push_back(key);
    _mfValues.resize(_mfKeys.size() - 1);
    _mfValues.push_back(std::string());
    return _mfValues.back();
}

void StringAttributeMap::setAttribute(const std::string& key, const std::string& value) {
    std::string kept = value; // the argument may be a value of this map, which moves
    (*this)[key] = std::move(kept);
}

bool StringAttributeMap::getAttribute(const std::string& key, std::string& value) const {
    const std::size_t place = placeOf(key);
    if (place == _mfKeys.size())
        return false;
    value = _mfValues[place];
    return true;
}

std::string StringAttributeMap::getAttribute(const std::string& key) const {
    std::string value;
    getAttribute(key, value);
    return value;
}

bool StringAttributeMap::hasAttribute(const std::string& key) const {
    return placeOf(key) < _mfKeys.size();
}

void StringAttributeMap::changed(BitVector which, UInt32 origin) {
    if ((which & KeysFieldMask) != 0)
        _places.clear();
    Attachment::changed(which, origin);
}

void StringAttributeMap::executeSync(FieldContainer& other, const BitVector& which) {
    _places.clear();
    Attachment::executeSync(other, which);
}

StringAttributeMapPtr stringAttributeMap(const AttachmentContainerPtr& container) {
    if (container == NullFC)
        return NullFC;
    StringAttributeMapPtr map =
        StringAttributeMapPtr::dcast(container->findAttachment(StringAttributeMap::getClassType()));
    if (map == NullFC) {
        map = StringAttributeMap::create();
        container->addAttachment(map);
    }
    return map;
}

OSG_END_NAMESPACE
