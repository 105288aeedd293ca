#include "inference/onnx_file.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace tavrin {

namespace {

// As deep as the runtime's own reader goes.
constexpr int kDeepest = 100;

/// One field of a message in protobuf's wire format.
struct Field {
    std::uint32_t number = 0;
    std::uint64_t value = 0;  ///< of a number
    std::string_view bytes;   ///< of a text or a message
    bool isNumber = false;
    bool hasBytes = false;
};

/// Takes a message apart, field by field.
class Message {
public:
    explicit Message(std::string_view bytes) : _rest(bytes) {}

    /// @return false at the end, and when what follows is no field: then isWhole() is false.
    bool next(Field& field) {
        if (_rest.empty() || !_whole) return false;
        std::uint64_t tag = 0;
        field = {};
        _whole = takeNumber(tag) && tag >> 3 != 0 && tag <= std::numeric_limits<std::uint32_t>::max() &&
                 takeContent(field, tag & 7);
        field.number = static_cast<std::uint32_t>(tag >> 3);
        return _whole;
    }

    bool isWhole() const { return _whole; }

private:
    bool takeNumber(std::uint64_t& number) {
        number = 0;
        for (unsigned shift = 0; shift < 70 && !_rest.empty(); shift += 7) {
            const auto byte = static_cast<unsigned char>(_rest.front());
            _rest.remove_prefix(1);
            if (shift < 64) number |= std::uint64_t{byte & 0x7FU} << shift;
            if (byte < 0x80) return true;
        }
        return false;
    }

    bool take(std::uint64_t count, std::string_view& bytes) {
        if (count > _rest.size()) return false;
        bytes = _rest.substr(0, static_cast<std::size_t>(count));
        _rest.remove_prefix(bytes.size());
        return true;
    }

    bool takeContent(Field& field, std::uint64_t wireType) {
        std::string_view passedOver;
        std::uint64_t length = 0;
        switch (wireType) {
            case 0:
                field.isNumber = true;
                return takeNumber(field.value);
            case 1:
                return take(8, passedOver);
            case 2:
                field.hasBytes = true;
                return takeNumber(length) && take(length, field.bytes);
            case 5:
                return take(4, passedOver);
            default:
                return false;  // groups, which no model has
        }
    }

    std::string_view _rest;
    bool _whole = true;
};

enum class Kind { model, graph, node, attribute, tensor, sparseTensor, training, function };

/// Where a message of one kind holds messages of another that can lead to tensors.
struct Child {
    Kind parent;
    std::uint32_t field;
    Kind kind;
};

// By the field numbers of onnx.proto.
constexpr Child kChildren[] = {
    {Kind::model, 7, Kind::graph},              // graph
    {Kind::model, 20, Kind::training},          // training_info
    {Kind::model, 25, Kind::function},          // functions
    {Kind::graph, 1, Kind::node},               // node
    {Kind::graph, 5, Kind::tensor},             // initializer
    {Kind::graph, 15, Kind::sparseTensor},      // sparse_initializer
    {Kind::node, 5, Kind::attribute},           // attribute
    {Kind::attribute, 5, Kind::tensor},         // t
    {Kind::attribute, 6, Kind::graph},          // g
    {Kind::attribute, 10, Kind::tensor},        // tensors
    {Kind::attribute, 11, Kind::graph},         // graphs
    {Kind::attribute, 22, Kind::sparseTensor},  // sparse_tensor
    {Kind::attribute, 23, Kind::sparseTensor},  // sparse_tensors
    {Kind::sparseTensor, 1, Kind::tensor},      // values
    {Kind::sparseTensor, 2, Kind::tensor},      // indices
    {Kind::training, 1, Kind::graph},           // initialization
    {Kind::training, 2, Kind::graph},           // algorithm
    {Kind::function, 7, Kind::node},            // node
    {Kind::function, 11, Kind::attribute},      // attribute_proto
};

class Reader {
public:
    OnnxFile read(std::string_view bytes) {
        _file.whole = !bytes.empty() && walk(Kind::model, bytes, 0);
        return std::move(_file);
    }

private:
    // Goes through a message and everything below it. False when it is damaged.
    bool walk(Kind kind, std::string_view bytes, int depth) {
        if (depth > kDeepest) return false;
        if (kind == Kind::tensor) return readTensor(bytes);
        Message message(bytes);
        for (Field field; message.next(field);) {
            if (kind == Kind::model && !readModelField(field)) return false;
            if (!field.hasBytes) continue;
            const auto* const child = std::find_if(std::begin(kChildren), std::end(kChildren), [&](const Child& entry) {
                return entry.parent == kind && entry.field == field.number;
            });
            if (child != std::end(kChildren) && !walk(child->kind, field.bytes, depth + 1)) return false;
        }
        return message.isWhole();
    }

    bool readModelField(const Field& field) {
        if (field.number == 1 && field.isNumber) _file.irVersion = static_cast<std::int64_t>(field.value);
        if (field.number == 8 && field.hasBytes) {  // opset_import
            std::string domain;
            std::int64_t version = 0;
            Message entry(field.bytes);
            for (Field part; entry.next(part);) {
                if (part.number == 1 && part.hasBytes) domain = part.bytes;
                if (part.number == 2 && part.isNumber) version = static_cast<std::int64_t>(part.value);
            }
            _file.opsets[domain == "ai.onnx" ? "" : domain] = version;
            return entry.isWhole();
        }
        if (field.number == 14 && field.hasBytes) {  // metadata_props
            const auto [key, value, whole] = readEntry(field.bytes);
            _file.metadata[std::string(key)] = value;
            return whole;
        }
        return true;
    }

    struct Entry {
        std::string_view key;
        std::string_view value;
        bool whole;
    };

    static Entry readEntry(std::string_view bytes) {
        std::string_view key;
        std::string_view value;
        Message entry(bytes);
        for (Field part; entry.next(part);) {
            if (part.number == 1 && part.hasBytes) key = part.bytes;
            if (part.number == 2 && part.hasBytes) value = part.bytes;
        }
        return {key, value, entry.isWhole()};
    }

    bool readTensor(std::string_view bytes) {
        std::string_view name;
        std::string_view place;
        bool isOutside = false;
        Message tensor(bytes);
        for (Field field; tensor.next(field);) {
            if (field.number == 8 && field.hasBytes) name = field.bytes;
            if (field.number == 13 && field.hasBytes) {  // external_data
                isOutside = true;
                const Entry entry = readEntry(field.bytes);
                if (!entry.whole) return false;
                if (entry.key == "location") place = entry.value;
            }
            constexpr std::int32_t kExternal = 1;  // enumerations are read as 32 bits, whatever stands above them
            if (field.number == 14 && field.isNumber && static_cast<std::int32_t>(field.value) == kExternal)
                isOutside = true;  // data_location
        }
        if (isOutside) {
            OnnxFile::Outside& outside = _file.outside[std::string(place)];
            if (++outside.tensors == 1) outside.first = name;
        }
        return tensor.isWhole();
    }

    OnnxFile _file;
};

}  // namespace

OnnxFile readOnnxFile(const void* data, std::size_t size) {
    return Reader().read({static_cast<const char*>(data), size});
}

}  // namespace tavrin
