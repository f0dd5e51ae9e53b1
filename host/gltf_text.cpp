#include "gltf_text.h"

#include <string>
#include <utility>

namespace morva::host {

namespace {

using nlohmann::json;

constexpr std::size_t most_nested = 500;

/// A key of a record that holds a number.
template <typename Record> struct number_key {
    const char* name;
    std::uint64_t Record::*number;
    bool needed;
};

constexpr number_key<gltf_view_record> view_keys[] = {
    {"buffer", &gltf_view_record::buffer, true},
    {"byteOffset", &gltf_view_record::offset, false},
    {"byteLength", &gltf_view_record::bytes, true},
    {"byteStride", &gltf_view_record::stride, false}};

constexpr number_key<gltf_accessor_record> accessor_keys[] = {
    {"bufferView", &gltf_accessor_record::view, true},
    {"byteOffset", &gltf_accessor_record::offset, false},
    {"componentType", &gltf_accessor_record::component_type, true},
    {"count", &gltf_accessor_record::count, true}};

constexpr int other_key = -1, type_key = -2, normalized_key = -3, refused_key = -4;

/// Fills the records of one list, value by value. Keys that only describe are passed over.
template <typename Record, std::size_t Count> class record_list {
  public:
    record_list(const number_key<Record> (&keys)[Count], std::vector<Record>& records)
        : keys_(keys), records_(records) {}

    void begin() {
        records_.emplace_back();
        records_.back().plain = true;
        seen_ = 0;
        key_ = other_key;
    }

    /// False if the record has the key already.
    bool key(const std::string& name) {
        key_ = keyOf(name);
        if (key_ < 0)
            return true;
        const unsigned bit = 1u << static_cast<unsigned>(key_);
        const bool fresh = (seen_ & bit) == 0;
        seen_ |= bit;
        return fresh;
    }

    void number(std::uint64_t value) {
        if (key_ >= 0)
            records_.back().*keys_[key_].number = value;
        else
            other();
    }
    void text(const std::string& value) {
        if (key_ != type_key)
            other();
        else if constexpr (std::is_same_v<Record, gltf_accessor_record>)
            records_.back().components = value == "SCALAR" ? 1
                                         : value == "VEC2" ? 2
                                         : value == "VEC3" ? 3
                                         : value == "VEC4" ? 4
                                                           : 0;
    }
    void truth(bool value) {
        if (key_ != normalized_key)
            other();
        else if constexpr (std::is_same_v<Record, gltf_accessor_record>)
            records_.back().normalized = value;
    }
    /// A value of another kind.
    void other() {
        if (key_ != other_key)
            records_.back().plain = false;
    }

    void end() {
        for (std::size_t i = 0; i < Count; ++i) {
            if (keys_[i].needed && (seen_ & 1u << i) == 0)
                records_.back().plain = false;
        }
    }

  private:
    int keyOf(const std::string& name) const {
        for (std::size_t i = 0; i < Count; ++i) {
            if (name == keys_[i].name)
                return static_cast<int>(i);
        }
        if (name == "sparse" || name == "extensions")
            return refused_key;
        if (std::is_same_v<Record, gltf_view_record>)
            return other_key;
        return name == "type" ? type_key : name == "normalized" ? normalized_key : other_key;
    }

    const number_key<Record> (&keys_)[Count];
    std::vector<Record>& records_;
    int key_ = other_key;
    unsigned seen_ = 0;
};

/// Builds the tree and the records from the parser's events.
class text_builder : public nlohmann::json_sax<json> {
  public:
    explicit text_builder(gltf_text& text)
        : text_(text), views_(view_keys, text.views), accessors_(accessor_keys, text.accessors) {}

    bool null() override {
        return inRecords([](auto& list) { list.other(); }) || add(nullptr);
    }
    bool boolean(bool value) override {
        return inRecords([&](auto& list) { list.truth(value); }) || add(value);
    }
    bool number_integer(number_integer_t value) override {
        return inRecords([](auto& list) { list.other(); }) || add(value);
    }
    bool number_unsigned(number_unsigned_t value) override {
        return inRecords([&](auto& list) { list.number(value); }) || add(value);
    }
    bool number_float(number_float_t value, const string_t&) override {
        return inRecords([](auto& list) { list.other(); }) || add(value);
    }
    bool string(string_t& value) override {
        return inRecords([&](auto& list) { list.text(value); }) || add(std::move(value));
    }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return start(true); }
    bool start_array(std::size_t) override { return start(false); }
    bool end_object() override { return end(); }
    bool end_array() override { return end(); }

    bool key(string_t& name) override {
        if (records_ != none) {
            bool fresh = true;
            if (level_ == record_level)
                visit([&](auto& list) { fresh = list.key(name); });
            return fresh;
        }
        if (level_ == 1 && (name == "accessors" || name == "bufferViews"))
            return announce(name == "accessors" ? accessors : views);
        const auto added =
            open_.back()->get_ref<json::object_t&>().emplace(std::move(name), nullptr);
        place_ = &added.first->second;
        return added.second;
    }

    bool parse_error(std::size_t, const std::string&, const json::exception&) override {
        return false;
    }

  private:
    enum list_kind { none, accessors, views };
    /// Brackets that are open inside a record itself: text, list, record.
    static constexpr std::size_t record_level = 3;

    template <typename Work> void visit(Work work) {
        if (records_ == accessors)
            work(accessors_);
        else
            work(views_);
    }

    /// Whether the value belongs to a list of records. Only a record's own values count; one
    /// outside of a record stands for a record that is not plain.
    template <typename Work> bool inRecords(Work work) {
        if (records_ == none)
            return false;
        if (level_ == record_level)
            visit(work);
        else if (level_ < record_level)
            visit([](auto& list) { refuse(list); });
        if (level_ == 1)
            records_ = none; // was no list at all
        return true;
    }
    template <typename List> static void refuse(List& list) {
        list.begin();
        list.end();
    }

    /// The next value is one of the two lists.
    bool announce(list_kind kind) {
        records_ = kind;
        return std::exchange(seen_[kind - 1], true) == false;
    }

    bool start(bool object) {
        if (records_ == none) {
            open_.push_back(&put(object ? json::object() : json::array()));
        } else if (level_ == record_level) {
            visit([](auto& list) { list.other(); });
        } else if (level_ == record_level - 1) {
            visit([](auto& list) { list.begin(); });
        }
        return ++level_ <= most_nested;
    }

    bool end() {
        --level_;
        if (records_ == none) {
            open_.pop_back();
            return true;
        }
        if (level_ == record_level - 1)
            visit([](auto& list) { list.end(); });
        if (level_ == 1)
            records_ = none;
        return true;
    }

    bool add(json value) {
        put(std::move(value));
        return true;
    }
    /// Puts a value where the text is. Only the innermost list grows, so that all others stay.
    json& put(json value) {
        if (open_.empty())
            return text_.json = std::move(value);
        if (open_.back()->is_object())
            return *place_ = std::move(value);
        return open_.back()->get_ref<json::array_t&>().emplace_back(std::move(value));
    }

    gltf_text& text_;
    record_list<gltf_view_record, std::size(view_keys)> views_;
    record_list<gltf_accessor_record, std::size(accessor_keys)> accessors_;
    list_kind records_ = none; ///< whose list the text is in
    bool seen_[2] = {false, false};
    std::size_t level_ = 0; ///< brackets that are open
    json* place_ = nullptr; ///< of the value whose key was read last
    std::vector<json*> open_;
};

} // namespace

bool readText(const std::vector<char>& characters, gltf_text& text) {
    text_builder builder(text);
    const char* const first = characters.data();
    return json::sax_parse(first, first + characters.size(), &builder) && text.json.is_object();
}

} // namespace morva::host
