#include "OpenSG/OSGBinaryDataHandler.h"

#include <algorithm>

OSG_BEGIN_NAMESPACE

BinaryDataHandler::~BinaryDataHandler() = default;

void BinaryDataHandler::putValue(const std::string& text) {
    const UInt32 bytes = static_cast<UInt32>(text.size()) + 1;
    putValue(bytes);
    put(text.c_str(), bytes);
}

void BinaryDataHandler::getValue(std::string& text) {
    UInt32 bytes = 0;
    getValue(bytes);
    text.clear();
    // In portions: a length that the data does not hold must not ask for all its memory.
    for (UInt32 done = 0; done < bytes;) {
        const UInt32 portion = std::min<UInt32>(bytes - done, 1u << 20);
        text.resize(done + portion);
        get(&text[done], portion);
        done += portion;
    }
    if (!text.empty())
        text.pop_back(); // the terminating zero
}

OSG_END_NAMESPACE
