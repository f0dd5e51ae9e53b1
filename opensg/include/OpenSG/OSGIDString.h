#pragma once

#include "OSGBaseTypes.h"

#include <cstring>
#include <string>

OSG_BEGIN_NAMESPACE

/// A text that names a type or field.
class OSG_BASE_DLLMAPPING IDString {
  public:
    IDString() = default;
    explicit IDString(const Char8* text) : _text(text ? text : "") {}

    const Char8* str() const { return _text.c_str(); }
    bool isEmpty() const { return _text.empty(); }
    void set(const Char8* text) { _text = text ? text : ""; }

    bool operator==(const IDString& other) const { return _text == other._text; }
    bool operator!=(const IDString& other) const { return _text != other._text; }
    bool operator<(const IDString& other) const { return _text < other._text; }
    bool operator==(const Char8* text) const { return text && _text == text; }
    bool operator!=(const Char8* text) const { return !(*this == text); }

  private:
    std::string _text;
};

OSG_END_NAMESPACE
