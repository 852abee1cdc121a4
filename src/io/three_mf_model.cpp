// The XML goes through expat but for the long runs of vertices and triangles: an element in the
// plain form that all writers use is taken straight from the text, which is five times as fast, and
// anything else, a comment or an entity for one, is left to expat.
#include "io/three_mf_model.h"

#include <expat.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/convert.h"
#include "io/decimal.h"
#include "io/file.h"

namespace povmesh {
namespace {

constexpr std::uint64_t kMostModelBytes = std::uint64_t{1} << 40;
constexpr std::uint64_t kMostRelationshipBytes = std::uint64_t{1} << 24;
constexpr std::size_t kDeepest = 100;  // elements within each other
constexpr std::size_t kMostMetadata = 100;
constexpr std::size_t kMostTextures = 1000;
constexpr std::size_t kLongestText = 65536;
constexpr std::size_t kMaxVertexCount = std::numeric_limits<std::int32_t>::max();

constexpr std::string_view kCore = "http://schemas.microsoft.com/3dmanufacturing/core/2015/02";
constexpr std::string_view kMaterials =
    "http://schemas.microsoft.com/3dmanufacturing/material/2015/02";
constexpr std::string_view kFamily = "http://schemas.microsoft.com/3dmanufacturing/";

// Between the namespace and the name of what expat tells.
constexpr char kSeparator = '|';

enum class Tag : std::uint8_t {
    Outside,
    Ignored,
    Model,
    Metadata,
    Resources,
    BaseMaterials,
    Base,
    ColourGroup,
    Colour,
    Texture,
    TextureGroup,
    TexturePoint,
    OtherGroup,
    Object,
    Mesh,
    Vertices,
    Vertex,
    Triangles,
    Triangle,
    Components,
    Component,
    Build,
    Item,
};

struct TagRule {
    Tag parent;
    Tag tag;
    std::string_view space;
    std::string_view name;
};

constexpr TagRule kTagRules[] = {
    {Tag::Triangles, Tag::Triangle, kCore, "triangle"},
    {Tag::Vertices, Tag::Vertex, kCore, "vertex"},
    {Tag::ColourGroup, Tag::Colour, kMaterials, "color"},
    {Tag::TextureGroup, Tag::TexturePoint, kMaterials, "tex2coord"},
    {Tag::BaseMaterials, Tag::Base, kCore, "base"},
    {Tag::Outside, Tag::Model, kCore, "model"},
    {Tag::Model, Tag::Metadata, kCore, "metadata"},
    {Tag::Model, Tag::Resources, kCore, "resources"},
    {Tag::Resources, Tag::BaseMaterials, kCore, "basematerials"},
    {Tag::Resources, Tag::ColourGroup, kMaterials, "colorgroup"},
    {Tag::Resources, Tag::Texture, kMaterials, "texture2d"},
    {Tag::Resources, Tag::TextureGroup, kMaterials, "texture2dgroup"},
    {Tag::Resources, Tag::OtherGroup, kMaterials, "compositematerials"},
    {Tag::Resources, Tag::OtherGroup, kMaterials, "multiproperties"},
    {Tag::Resources, Tag::Object, kCore, "object"},
    {Tag::Object, Tag::Mesh, kCore, "mesh"},
    {Tag::Mesh, Tag::Vertices, kCore, "vertices"},
    {Tag::Mesh, Tag::Triangles, kCore, "triangles"},
    {Tag::Object, Tag::Components, kCore, "components"},
    {Tag::Components, Tag::Component, kCore, "component"},
    {Tag::Model, Tag::Build, kCore, "build"},
    {Tag::Build, Tag::Item, kCore, "item"},
};

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && static_cast<unsigned char>(text.front()) <= ' ') text.remove_prefix(1);
    while (!text.empty() && static_cast<unsigned char>(text.back()) <= ' ') text.remove_suffix(1);
    return text;
}

bool read_number(std::string_view text, double& value) {
    text = trimmed(text);
    return parse_decimal(text.data(), text.data() + text.size(), value) ==
               text.data() + text.size() &&
           !text.empty();
}

bool read_index(std::string_view text, std::uint32_t& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc{} && end == text.data() + text.size()) return true;
    text = trimmed(text);
    const auto [again, other] = std::from_chars(text.data(), text.data() + text.size(), value);
    return other == std::errc{} && again == text.data() + text.size();
}

// Attributes as they come in; bits say which were there.
struct VertexText {
    std::array<double, 3> at{};
    unsigned found = 0;

    static constexpr unsigned kAll = 7;

    bool take(std::string_view name, std::string_view value) {
        if (name.size() != 1 || name[0] < 'x' || name[0] > 'z') return false;
        const auto axis = static_cast<std::size_t>(name[0] - 'x');
        if ((found >> axis & 1U) != 0 || !read_number(value, at[axis])) return false;
        set(axis, trimmed(value));
        return true;
    }

    // Of a coordinate that has been read from these digits.
    void set(std::size_t axis, std::string_view digits) {
        // What a float says is kept as it says it; the double may lie half way between two.
        const float nearest = nearest_float(at[axis], digits);
        if (narrow_to_float(at[axis]) != nearest) at[axis] = static_cast<double>(nearest);
        found |= 1U << axis;
    }
};

struct TriangleText {
    std::array<std::uint32_t, 3> vertex{};
    std::array<std::uint32_t, 3> property{};
    std::uint32_t group = 0;
    unsigned found = 0;  // v1 to v3: 1, 2, 4; p1 to p3: 8, 16, 32; pid: 64

    static constexpr unsigned kAll = 7;
    static constexpr unsigned kProperty = 8;
    static constexpr unsigned kGroup = 64;

    bool take(std::string_view name, std::string_view value) {
        if (name == "pid") return take(kGroup, value, group);
        if (name.size() != 2 || name[1] < '1' || name[1] > '3') return false;
        const auto corner = static_cast<std::size_t>(name[1] - '1');
        if (name[0] == 'v') return take(1U << corner, value, vertex[corner]);
        return name[0] == 'p' && take(kProperty << corner, value, property[corner]);
    }

private:
    bool take(unsigned bit, std::string_view value, std::uint32_t& number) {
        if ((found & bit) != 0 || !read_index(value, number)) return false;
        found |= bit;
        return true;
    }
};

bool is_space(char c) {
    return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

// Reads an element `<NAME a="1" .../>` that ends at `end`, just behind its ">"; false when it is
// written in any other way.
template <typename Element>
bool read_plain(const char* p, const char* end, std::string_view name, Element& element) {
    if (static_cast<std::size_t>(end - p) < name.size() + 4 || *p != '<' || end[-2] != '/' ||
        std::memcmp(p + 1, name.data(), name.size()) != 0 || !is_space(p[name.size() + 1])) {
        return false;
    }
    const char* const last = end - 2;
    p += name.size() + 1;
    for (;;) {
        while (p != last && is_space(*p)) ++p;
        if (p == last) return (element.found & Element::kAll) == Element::kAll;
        const char* const word = p;
        while (p != last && *p != '=') ++p;
        if (last - p < 3 || p[1] != '"') return false;
        const std::string_view attribute(word, static_cast<std::size_t>(p - word));
        const char* const value = p + 2;
        p = value;
        while (p != last && *p != '"') ++p;
        if (p == last) return false;
        if (!element.take(attribute, {value, static_cast<std::size_t>(p - value)})) return false;
        ++p;
    }
}

bool take_letters(const char*& p, const char* end, std::string_view letters) {
    if (static_cast<std::size_t>(end - p) < letters.size() ||
        std::memcmp(p, letters.data(), letters.size()) != 0) {
        return false;
    }
    p += letters.size();
    return true;
}

// Takes an element if it is written letter by letter as nearly all writers do, without anything
// but coordinates or corners; else `p` stays, and nothing is said about what stands there.
bool take_usual(const char*& p, const char* end, VertexText& vertex) {
    static constexpr std::string_view kBefore[] = {"<vertex x=\"", "\" y=\"", "\" z=\""};
    const char* q = p;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!take_letters(q, end, kBefore[axis])) return false;
        const char* const digits = q;
        q = parse_decimal(q, end, vertex.at[axis]);
        if (q == nullptr) return false;
        vertex.set(axis, {digits, static_cast<std::size_t>(q - digits)});
    }
    if (!take_letters(q, end, "\"/>")) return false;
    p = q;
    return true;
}

bool take_usual(const char*& p, const char* end, TriangleText& triangle) {
    static constexpr std::string_view kBefore[] = {"<triangle v1=\"", "\" v2=\"", "\" v3=\""};
    constexpr std::ptrdiff_t kMostDigits = 9;  // of numbers that need no look at their range
    const char* q = p;
    for (std::size_t corner = 0; corner < 3; ++corner) {
        if (!take_letters(q, end, kBefore[corner])) return false;
        const char* const digits = q;
        std::uint32_t number = 0;
        while (q != end && q - digits < kMostDigits && detail::is_digit(*q)) {
            number = number * 10 + static_cast<std::uint32_t>(*q++ - '0');
        }
        if (q == digits) return false;
        triangle.vertex[corner] = number;
    }
    if (!take_letters(q, end, "\"/>")) return false;
    triangle.found = TriangleText::kAll;
    p = q;
    return true;
}

// Colours or texture coordinates that triangles name.
struct PropertyGroup {
    bool has_colours = false;
    std::vector<std::array<std::uint8_t, 3>> colours;
    int texture = -1;
    std::size_t first_point = 0;  // in the texture coordinates
    std::size_t size = 0;
    bool is_white = false;  // of a kind whose colours are not read
};

class ModelParser {
public:
    ModelParser(const std::string& part, const std::string& name, ThreeMfModel& model)
        : part_(part),
          name_(name),
          model_(model),
          parser_(XML_ParserCreateNS(nullptr, kSeparator)) {
        if (parser_ == nullptr) throw std::bad_alloc();
        XML_SetUserData(parser_.get(), this);
        XML_SetElementHandler(parser_.get(), on_start, on_end);
        XML_SetCharacterDataHandler(parser_.get(), on_text);
        XML_SetStartDoctypeDeclHandler(parser_.get(), on_doctype);
        stack_.push_back(Tag::Outside);
    }

    /// Makes room for what a text of so many bytes will hold, so that it need not be moved.
    void expect(std::uint64_t bytes) {
        constexpr std::uint64_t kBytesPerTriangle = 64;  // with half a vertex
        const auto triangles = static_cast<std::size_t>(
            std::min<std::uint64_t>(bytes / kBytesPerTriangle, kMaxFaceCount));
        model_.faces.reserve(triangles);
        model_.points.reserve(triangles / 2);
    }

    /// False when nothing more is wanted.
    bool feed(std::span<const char> bytes) {
        const char* p = bytes.data();
        const char* const end = p + bytes.size();
        if (!rest_.empty()) {
            // The element that the last piece ended in.
            const auto* close = static_cast<const char*>(std::memchr(p, '>', bytes.size()));
            const char* const stop = close == nullptr ? end : close + 1;
            rest_.insert(rest_.end(), p, stop);
            p = stop;
            if (close == nullptr && rest_.size() < kLongestText) return true;
            if (!take_piece(rest_.data(), rest_.data() + rest_.size())) return false;
            rest_.clear();
        }
        for (;;) {
            if (!take_run(p, end)) return false;
            if (p == end) return true;
            const auto* close =
                static_cast<const char*>(std::memchr(p, '>', static_cast<std::size_t>(end - p)));
            if (close == nullptr) {
                rest_.assign(p, end);
                return true;
            }
            if (!take_piece(p, close + 1)) return false;
            p = close + 1;
        }
    }

    Status finish() {
        if (is_sound() && !rest_.empty()) parse(rest_.data(), rest_.data() + rest_.size());
        if (is_sound() && XML_Parse(parser_.get(), "", 0, XML_TRUE) != XML_STATUS_OK) fail_in_xml();
        if (exception_) std::rethrow_exception(exception_);
        if (!trouble_.empty()) return {StatusCode::BadFile, one_line(name_) + ": " + trouble_};
        if (is_too_large_) {
            return {StatusCode::TooLarge,
                    one_line(name_) + ": more than a mesh can number; divide the model"};
        }
        for (const auto& [space, count] : unknown_spaces_) note_unknown(space, count);
        if (white_groups_ > 0) {
            model_.warnings.push_back(std::to_string(white_groups_) +
                                      " groups of composite materials or of several properties "
                                      "taken for white");
        }
        return resolve();
    }

private:
    struct Free {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };

    bool is_sound() const { return trouble_.empty() && !is_too_large_ && !exception_; }

    // Takes elements of a run as long as they are written as usual.
    bool take_run(const char*& p, const char* end) {
        if (!is_plain_) return true;
        if (stack_.back() == Tag::Vertices) {
            return take_run<VertexText>(
                p, end, [this](const VertexText& vertex) { return add_vertex(vertex); });
        }
        return stack_.back() != Tag::Triangles ||
               take_run<TriangleText>(
                   p, end, [this](const TriangleText& triangle) { return add_triangle(triangle); });
    }

    template <typename Element, typename Add>
    bool take_run(const char*& p, const char* end, Add&& add) {
        for (;;) {
            const char* q = p;
            while (q != end && is_space(*q)) ++q;
            Element element;
            if (!take_usual(q, end, element)) return true;
            if (!add(element)) return false;
            skipped_ += static_cast<std::uint64_t>(q - p);
            p = q;
        }
    }

    // A piece of text up to the end of a tag, if it is one.
    bool take_piece(const char* p, const char* end) {
        if (stack_.back() == Tag::Vertices && is_plain_) {
            const char* first = p;
            while (first != end && is_space(*first)) ++first;
            VertexText vertex;
            if (read_plain(first, end, "vertex", vertex)) {
                if (!add_vertex(vertex)) return false;
                skipped_ += static_cast<std::uint64_t>(end - p);
                return true;
            }
            is_plain_ = !is_markup(first, end);
        } else if (stack_.back() == Tag::Triangles && is_plain_) {
            const char* first = p;
            while (first != end && is_space(*first)) ++first;
            TriangleText triangle;
            if (read_plain(first, end, "triangle", triangle)) {
                if (!add_triangle(triangle)) return false;
                skipped_ += static_cast<std::uint64_t>(end - p);
                return true;
            }
            is_plain_ = !is_markup(first, end);
        }
        return parse(p, end);
    }

    // A comment and the like, in which there may be what looks like an element.
    static bool is_markup(const char* p, const char* end) {
        return end - p > 1 && *p == '<' && (p[1] == '!' || p[1] == '?');
    }

    bool parse(const char* p, const char* end) {
        while (p != end && is_sound()) {
            const auto count = std::min<std::ptrdiff_t>(end - p, std::ptrdiff_t{1} << 20);
            if (XML_Parse(parser_.get(), p, static_cast<int>(count), XML_FALSE) != XML_STATUS_OK &&
                is_sound()) {
                fail_in_xml();
            }
            p += count;
        }
        return is_sound();
    }

    std::uint64_t byte() const {
        const XML_Index index = XML_GetCurrentByteIndex(parser_.get());
        return skipped_ + static_cast<std::uint64_t>(std::max<XML_Index>(index, 0));
    }

    // The first thing that is wrong counts.
    bool fail(const std::string& what) {
        if (trouble_.empty()) {
            trouble_ = one_line(part_) + ": byte " + std::to_string(byte()) + ": " + what;
        }
        (void)XML_StopParser(parser_.get(), XML_FALSE);
        return false;
    }

    void fail_in_xml() {
        const XML_Error code = XML_GetErrorCode(parser_.get());
        if (code == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
        fail(code == XML_ERROR_NO_ELEMENTS || code == XML_ERROR_UNCLOSED_TOKEN
                 ? std::string("truncated: the text ends here")
                 : std::string("damaged XML: ") + XML_ErrorString(code));
    }

    bool fail_too_large() {
        is_too_large_ = true;
        (void)XML_StopParser(parser_.get(), XML_FALSE);
        return false;
    }

    // Handlers of expat, which is C: no exception goes through it.
    template <typename Body>
    static void guarded(void* user, Body&& body) {
        auto& self = *static_cast<ModelParser*>(user);
        if (!self.is_sound()) return;
        try {
            body(self);
        } catch (...) {
            self.exception_ = std::current_exception();
            (void)XML_StopParser(self.parser_.get(), XML_FALSE);
        }
    }
    static void XMLCALL on_start(void* user, const XML_Char* name, const XML_Char** attributes) {
        guarded(user, [&](ModelParser& self) { self.start(name, attributes); });
    }
    static void XMLCALL on_end(void* user, const XML_Char* /*name*/) {
        guarded(user, [](ModelParser& self) { self.end(); });
    }
    static void XMLCALL on_text(void* user, const XML_Char* text, int length) {
        guarded(user, [&](ModelParser& self) {
            if (self.stack_.back() == Tag::Metadata && self.text_.size() < kLongestText) {
                self.text_.append(text, static_cast<std::size_t>(length));
            }
        });
    }
    static void XMLCALL on_doctype(void* user, const XML_Char* /*name*/, const XML_Char* /*system*/,
                                   const XML_Char* /*public_id*/, int /*has_subset*/) {
        guarded(user, [](ModelParser& self) {
            self.fail("has a document type definition, which 3MF forbids");
        });
    }

    void start(std::string_view full_name, const XML_Char** attributes) {
        if (stack_.size() > kDeepest) {
            fail("more than " + std::to_string(kDeepest) + " elements within each other");
            return;
        }
        const std::size_t bar = full_name.find(kSeparator);
        const std::string_view space =
            bar == std::string_view::npos ? std::string_view() : full_name.substr(0, bar);
        const std::string_view name =
            bar == std::string_view::npos ? full_name : full_name.substr(bar + 1);
        Tag tag = Tag::Ignored;
        for (const TagRule& rule : kTagRules) {
            if (rule.parent == stack_.back() && rule.name == name && rule.space == space) {
                tag = rule.tag;
                break;
            }
        }
        if (tag == Tag::Ignored) {
            if (stack_.size() == 1) {
                fail("is no 3MF model: begins with \"" + one_line(full_name.substr(0, 80)) + "\"");
                return;
            }
            if (stack_.back() != Tag::Ignored && space != kCore) note_space(space);
        }
        stack_.push_back(tag);
        attributes_ = attributes;
        open(tag);
    }

    void note_space(std::string_view space) {
        for (auto& [known, count] : unknown_spaces_) {
            if (known == space) {
                ++count;
                return;
            }
        }
        if (unknown_spaces_.size() < kMostMetadata) unknown_spaces_.emplace_back(space, 1);
    }

    void note_unknown(std::string_view space, std::size_t count) {
        if (space.starts_with(kFamily)) space.remove_prefix(kFamily.size());
        model_.warnings.push_back("elements of the extension " + one_line(space) +
                                  " left out, first of " + std::to_string(count));
    }

    std::optional<std::string_view> attribute(std::string_view name) const {
        for (const XML_Char** a = attributes_; *a != nullptr; a += 2) {
            if (name == *a) return std::string_view(a[1]);
        }
        return std::nullopt;
    }

    std::string text_of(std::string_view name) const {
        return std::string(attribute(name).value_or(""));
    }

    bool id_of(std::string_view name, std::uint32_t& id) {
        const auto text = attribute(name);
        if (text && read_index(*text, id)) return true;
        return fail("\"" + std::string(name) + "\" is missing or no number");
    }

    void open(Tag tag) {
        switch (tag) {
            case Tag::Model:
                return open_model();
            case Tag::Metadata:
                text_.clear();
                metadata_name_ = text_of("name");
                return;
            case Tag::BaseMaterials:
            case Tag::ColourGroup:
            case Tag::TextureGroup:
            case Tag::OtherGroup:
                return open_group(tag);
            case Tag::Base:
                return add_colour(attribute("displaycolor"), true);
            case Tag::Colour:
                return add_colour(attribute("color"), false);
            case Tag::Texture:
                return add_texture();
            case Tag::TexturePoint:
                return add_texture_point();
            case Tag::Object:
                return open_object();
            case Tag::Vertices:
            case Tag::Triangles:
                is_plain_ = true;
                return;
            case Tag::Vertex:
                read_element<VertexText>(
                    [this](const VertexText& vertex) { return add_vertex(vertex); });
                return;
            case Tag::Triangle:
                read_element<TriangleText>(
                    [this](const TriangleText& triangle) { return add_triangle(triangle); });
                return;
            case Tag::Component:
                return add_placed(object_.components);
            case Tag::Item:
                return add_placed(model_.items);
            default:
                return;
        }
    }

    template <typename Element, typename Add>
    void read_element(Add&& add) {
        Element element;
        for (const XML_Char** a = attributes_; *a != nullptr; a += 2) {
            if (std::strchr(a[0], kSeparator) != nullptr) continue;
            if (!element.take(a[0], a[1])) {
                fail(std::string("attribute ") + one_line(a[0]) + "=\"" +
                     one_line(std::string_view(a[1]).substr(0, 20)) +
                     "\" is not what belongs there");
                return;
            }
        }
        if ((element.found & Element::kAll) != Element::kAll) {
            fail("an attribute of a vertex or a triangle is missing");
            return;
        }
        add(element);
    }

    void end() {
        const Tag tag = stack_.back();
        stack_.pop_back();
        if (tag == Tag::Metadata && !metadata_name_.empty() &&
            metadata_name_.find(':') == std::string::npos && metadata_name_ != "Application" &&
            model_.metadata.size() < kMostMetadata) {
            model_.metadata.emplace_back(metadata_name_, text_);
        } else if (tag == Tag::Object) {
            object_.point_count = model_.points.size() - object_.first_point;
            object_.face_count = model_.faces.size() - object_.first_face;
            object_numbers_.emplace(object_.id, model_.objects.size());
            model_.objects.push_back(std::move(object_));
            object_ = {};
        }
    }

    void open_model() {
        static constexpr std::pair<std::string_view, double> kUnits[] = {
            {"millimeter", 1}, {"micron", 0.001}, {"centimeter", 10},
            {"inch", 25.4},    {"foot", 304.8},   {"meter", 1000}};
        const std::string_view unit = attribute("unit").value_or("millimeter");
        for (const auto& [name, factor] : kUnits) {
            if (name == unit) {
                model_.unit = name;
                model_.to_millimetres = factor;
                return;
            }
        }
        fail("unit \"" + one_line(unit.substr(0, 20)) +
             "\" is none of micron, millimeter, centimeter, inch, foot and meter");
    }

    void open_group(Tag tag) {
        std::uint32_t id = 0;
        if (!id_of("id", id)) return;
        PropertyGroup group;
        group.has_colours = tag == Tag::BaseMaterials || tag == Tag::ColourGroup;
        group.is_white = tag == Tag::OtherGroup;
        if (group.is_white) ++white_groups_;
        group.first_point = model_.texture_coordinates.size();
        if (tag == Tag::TextureGroup) {
            std::uint32_t texture = 0;
            if (!id_of("texid", texture)) return;
            const auto found = texture_numbers_.find(texture);
            if (found == texture_numbers_.end()) {
                fail("names texture " + std::to_string(texture) + ", which is not there");
                return;
            }
            group.texture = found->second;
        }
        if (!groups_.emplace(id, groups_list_.size()).second) {
            fail("second resource with the id " + std::to_string(id));
            return;
        }
        groups_list_.push_back(std::move(group));
    }

    void add_colour(std::optional<std::string_view> text, bool may_lack) {
        std::array<std::uint8_t, 3> colour = {255, 255, 255};
        if (!text && !may_lack) {
            fail("a colour without a value");
            return;
        }
        if (text) {
            const std::string_view digits = trimmed(*text);
            std::uint32_t value = 0;
            const bool has_alpha = digits.size() == 9;
            const char* const first = digits.data() + 1;
            if ((digits.size() != 7 && !has_alpha) || digits[0] != '#' ||
                std::from_chars(first, first + 6, value, 16).ptr != first + 6) {
                fail("\"" + one_line(digits.substr(0, 20)) + "\" is no colour such as #FF8000");
                return;
            }
            colour = {static_cast<std::uint8_t>(value >> 16 & 0xFFU),
                      static_cast<std::uint8_t>(value >> 8 & 0xFFU),
                      static_cast<std::uint8_t>(value & 0xFFU)};
        }
        groups_list_.back().colours.push_back(colour);
    }

    void add_texture() {
        std::uint32_t id = 0;
        if (!id_of("id", id)) return;
        TextureFile texture;
        texture.path = text_of("path");
        texture.content_type = text_of("contenttype");
        if (texture.path.empty()) {
            fail("a texture without a path");
            return;
        }
        if (model_.textures.size() >= kMostTextures) {
            fail("more than " + std::to_string(kMostTextures) + " textures");
            return;
        }
        texture_numbers_.emplace(id, static_cast<int>(model_.textures.size()));
        model_.textures.push_back(std::move(texture));
    }

    void add_texture_point() {
        TextureCoordinate point{0, 0, static_cast<std::int32_t>(model_.texture_coordinates.size())};
        if (model_.texture_coordinates.size() >= kMaxVertexCount) {
            fail_too_large();
            return;
        }
        if (!read_number(attribute("u").value_or(""), point.u) ||
            !read_number(attribute("v").value_or(""), point.v)) {
            fail("a texture coordinate is missing or no number");
            return;
        }
        model_.texture_coordinates.push_back(point);
        ++groups_list_.back().size;
    }

    void open_object() {
        object_ = {};
        if (!id_of("id", object_.id)) return;
        if (object_numbers_.count(object_.id) != 0) {
            fail("second object with the id " + std::to_string(object_.id));
            return;
        }
        object_.name = text_of("name");
        object_.is_other = attribute("type").value_or("model") == "other";
        object_.first_point = model_.points.size();
        object_.first_face = model_.faces.size();
        has_default_ = false;
        if (attribute("pid")) {
            has_default_ = true;
            default_property_ = 0;
            if (!id_of("pid", default_group_)) return;
            if (attribute("pindex") && !id_of("pindex", default_property_)) return;
        }
    }

    bool add_vertex(const VertexText& vertex) {
        if (model_.points.size() >= kMaxVertexCount) return fail_too_large();
        model_.points.push_back({vertex.at[0], vertex.at[1], vertex.at[2]});
        return true;
    }

    bool add_triangle(const TriangleText& triangle) {
        if (model_.faces.size() >= kMaxFaceCount) return fail_too_large();
        const std::size_t count = model_.points.size() - object_.first_point;
        Face face{{255, 255, 255, 255, 255, 255, 255, 255, 255}, 0, -1, {}, {-1, -1, -1}};
        for (std::size_t c = 0; c < 3; ++c) {
            if (triangle.vertex[c] >= count) {
                return fail("a triangle names vertex " + std::to_string(triangle.vertex[c]) +
                            "; object " + std::to_string(object_.id) + " has " +
                            std::to_string(count) + ", counted from 0");
            }
            face.vertex[c] = static_cast<std::int32_t>(triangle.vertex[c]);
        }
        if ((triangle.found & TriangleText::kProperty) != 0) {
            std::uint32_t group = triangle.group;
            if ((triangle.found & TriangleText::kGroup) == 0) {
                if (!has_default_) return fail("a triangle has a property but no group of them");
                group = default_group_;
            }
            std::array<std::uint32_t, 3> properties = triangle.property;
            for (std::size_t c = 1; c < 3; ++c) {
                if ((triangle.found & TriangleText::kProperty << c) == 0) {
                    properties[c] = properties[0];
                }
            }
            if (!set_properties(group, properties, face)) return false;
        } else if (has_default_) {
            const std::uint32_t p = default_property_;
            if (!set_properties(default_group_, {p, p, p}, face)) return false;
        }
        model_.faces.push_back(face);
        return true;
    }

    bool set_properties(std::uint32_t id, const std::array<std::uint32_t, 3>& properties,
                        Face& face) {
        if (id != known_group_id_ || known_group_ == nullptr ||
            groups_list_.size() != known_count_) {
            const auto found = groups_.find(id);
            if (found == groups_.end()) {
                return fail("names property group " + std::to_string(id) +
                            ", which does not stand before it");
            }
            known_group_id_ = id;
            known_count_ = groups_list_.size();
            known_group_ = &groups_list_[found->second];
        }
        const PropertyGroup& group = *known_group_;
        if (group.is_white) return true;
        const std::size_t size = group.has_colours ? group.colours.size() : group.size;
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t p = properties[c];
            if (p >= size) {
                return fail("names property " + std::to_string(p) + " of group " +
                            std::to_string(id) + ", which has " + std::to_string(size));
            }
            if (group.has_colours) {
                std::copy(group.colours[p].begin(), group.colours[p].end(),
                          face.colour.begin() + static_cast<std::ptrdiff_t>(3 * c));
            } else {
                face.uv[c] = static_cast<std::int32_t>(group.first_point + p);
            }
        }
        if (!group.has_colours) face.label = static_cast<std::int16_t>(group.texture);
        return true;
    }

    // A component or an item. What it names may come later: it is looked up at the end.
    void add_placed(std::vector<PlacedObject>& list) {
        std::uint32_t id = 0;
        if (!id_of("objectid", id)) return;
        for (const XML_Char** a = attributes_; *a != nullptr; a += 2) {
            const std::string_view name = a[0];
            if (name.starts_with(kFamily) && name.ends_with("|path")) {
                ++elsewhere_;
                return;
            }
        }
        PlacedObject placed{id, {}};
        if (const auto text = attribute("transform");
            text && !read_placement(*text, placed.placement)) {
            fail("\"transform\" is not twelve numbers");
            return;
        }
        list.push_back(placed);
    }

    static bool read_placement(std::string_view text, Placement& placement) {
        for (auto& row : placement.rows) {
            for (double& number : row) {
                text = trimmed(text);
                const char* const end =
                    parse_decimal(text.data(), text.data() + text.size(), number);
                if (end == nullptr) return false;
                text.remove_prefix(static_cast<std::size_t>(end - text.data()));
            }
        }
        return trimmed(text).empty();
    }

    // Turns ids into indices.
    Status resolve() {
        if (elsewhere_ > 0) {
            model_.warnings.push_back(std::to_string(elsewhere_) +
                                      " objects of other parts of the package left out (extension "
                                      "production)");
        }
        const auto look_up = [&](std::vector<PlacedObject>& list) -> Status {
            for (PlacedObject& placed : list) {
                const auto found = object_numbers_.find(static_cast<std::uint32_t>(placed.object));
                if (found == object_numbers_.end()) {
                    return {StatusCode::BadFile, one_line(name_) + ": " + one_line(part_) +
                                                     ": object " + std::to_string(placed.object) +
                                                     " is placed, but it is not there"};
                }
                placed.object = found->second;
            }
            return {};
        };
        for (ThreeMfObject& object : model_.objects) {
            if (Status status = look_up(object.components); !status.ok()) return status;
        }
        return look_up(model_.items);
    }

    const std::string& part_;
    const std::string& name_;
    ThreeMfModel& model_;
    std::unique_ptr<std::remove_pointer_t<XML_Parser>, Free> parser_;
    std::vector<Tag> stack_;
    const XML_Char** attributes_ = nullptr;
    std::string trouble_;
    bool is_too_large_ = false;
    std::exception_ptr exception_;
    bool is_plain_ = false;      // elements of the run at hand may be taken from the text
    std::uint64_t skipped_ = 0;  // bytes that expat has not seen
    Array<char> rest_;           // of the last piece, the beginning of a tag

    std::unordered_map<std::uint32_t, std::size_t> groups_;  // by id
    std::vector<PropertyGroup> groups_list_;
    std::unordered_map<std::uint32_t, int> texture_numbers_;
    std::unordered_map<std::uint32_t, std::size_t> object_numbers_;
    const PropertyGroup* known_group_ = nullptr;  // the last one that was looked up
    std::uint32_t known_group_id_ = 0;
    std::size_t known_count_ = 0;

    ThreeMfObject object_;  // at hand
    bool has_default_ = false;
    std::uint32_t default_group_ = 0;
    std::uint32_t default_property_ = 0;
    std::string metadata_name_;
    std::string text_;
    std::size_t elsewhere_ = 0;
    std::size_t white_groups_ = 0;
    std::vector<std::pair<std::string, std::size_t>> unknown_spaces_;
};

// The relationships of a package: the target of the one to the model.
struct Relationships {
    std::string target;
    std::exception_ptr exception;

    static void XMLCALL on_start(void* user, const XML_Char* name, const XML_Char** attributes) {
        auto& self = *static_cast<Relationships*>(user);
        try {
            self.take(name, attributes);
        } catch (...) {
            self.exception = std::current_exception();
        }
    }

    void take(const XML_Char* name, const XML_Char** attributes) {
        if (!std::string_view(name).ends_with("|Relationship") || !target.empty()) return;
        std::string_view type;
        std::string_view place;
        for (const XML_Char** a = attributes; *a != nullptr; a += 2) {
            if (std::string_view(a[0]) == "Type") type = a[1];
            if (std::string_view(a[0]) == "Target") place = a[1];
        }
        constexpr std::string_view kModelType =
            "http://schemas.microsoft.com/3dmanufacturing/2013/01/3dmodel";
        if (type != kModelType) return;
        while (place.starts_with('/')) place.remove_prefix(1);
        target = place;
    }
};

}  // namespace

Status find_model_part(const PackageReader& package, const std::string& name, std::string& part) {
    part = "3D/3dmodel.model";
    const std::string relationships = "_rels/.rels";
    if (package.has(relationships)) {
        const std::unique_ptr<std::remove_pointer_t<XML_Parser>, void (*)(XML_Parser)> parser(
            XML_ParserCreateNS(nullptr, kSeparator), XML_ParserFree);
        if (parser == nullptr) throw std::bad_alloc();
        Relationships found;
        XML_SetUserData(parser.get(), &found);
        XML_SetStartElementHandler(parser.get(), Relationships::on_start);
        Status status = package.read(relationships, kMostRelationshipBytes, [&](auto piece) {
            return XML_Parse(parser.get(), piece.data(), static_cast<int>(piece.size()),
                             XML_FALSE) == XML_STATUS_OK;
        });
        if (found.exception) std::rethrow_exception(found.exception);
        if (!status.ok()) return status;
        if (!found.target.empty()) part = found.target;
    }
    if (package.has(part)) return {};
    return {StatusCode::BadFile,
            one_line(name) + ": package without a 3D model; " + one_line(part) + " is not in it"};
}

Status read_three_mf_model(const PackageReader& package, const std::string& part,
                           const std::string& name, ThreeMfModel& model) {
    model = {};
    ModelParser parser(part, name, model);
    parser.expect(package.likely_bytes(part));
    Status status = package.read(part, kMostModelBytes,
                                 [&](std::span<const char> piece) { return parser.feed(piece); });
    Status parsed = status.ok() ? parser.finish() : status;
    return parsed;
}

}  // namespace povmesh
