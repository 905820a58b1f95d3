#include "koPacketFile/value_reader.h"

namespace koPacketFile {

namespace {

constexpr std::size_t lengthBytes = 8;

constexpr unsigned sizeClassOf(unsigned char tag)
{
    return tag >> 5;
}

}  // namespace

ValueReader::ValueReader(std::span<std::byte const> body) : body_(body.data())
{
    ends_[0] = body.size();
}

void ValueReader::fail(Problem problem)
{
    if (problem_ == Problem::None)
        problem_ = problem;
}

bool ValueReader::hasValues() const
{
    return problem_ == Problem::None && body_ != nullptr && at_ < end() &&
           ValueTag{byte(at_)} != ValueTag::NextChunk;
}

std::uint64_t ValueReader::lengthAt(std::size_t at) const
{
    return load<std::uint64_t>(body_ + at);
}

// The bytes of the value at the current place, its tag included; 0 where it is none, or does not fit.
std::uint64_t ValueReader::valueBytes() const
{
    std::size_t const left = end() - at_;
    auto const fitting = [left](std::uint64_t bytes) { return bytes <= left ? bytes : 0; };

    unsigned char const tag = byte(at_);
    switch (sizeClassOf(tag)) {
    case 0:
        return ValueTag{tag} == ValueTag::Invalid ? 0 : 1;
    case 1:
        return fitting(2);
    case 2:
        return fitting(3);
    case 3:
        return fitting(5);
    case 4:
        return fitting(9);
    case 5:
    case 6:
        if (left < 1 + lengthBytes || lengthAt(at_ + 1) > left - 1 - lengthBytes)
            return 0;
        return 1 + lengthBytes + lengthAt(at_ + 1);
    default:
        return 0;
    }
}

void ValueReader::skip()
{
    if (!hasValues()) {
        fail(Problem::MissingValue);
        return;
    }
    auto const bytes = valueBytes();
    if (bytes == 0)
        fail(Problem::DamagedValue);
    at_ += static_cast<std::size_t>(bytes);
}

void ValueReader::nextChunk()
{
    while (hasValues())
        skip();
    if (problem_ == Problem::None && body_ != nullptr && at_ < end())
        ++at_;
}

// Steps over a value of that type and of that many bytes; returns what follows its tag.
std::byte const* ValueReader::take(ValueTag tag, std::size_t bytes)
{
    if (!hasValues()) {
        fail(Problem::MissingValue);
        return nullptr;
    }
    if (ValueTag{byte(at_)} != tag) {
        fail(Problem::WrongValue);
        return nullptr;
    }
    if (bytes > end() - at_ - 1) {
        fail(Problem::DamagedValue);
        return nullptr;
    }
    auto const* const value = body_ + at_ + 1;
    at_ += 1 + bytes;
    return value;
}

std::byte const* ValueReader::takeArray(ValueTag tag, std::uint64_t bytes)
{
    onlyTypeDiffers_ = false;
    if (!hasValues()) {
        fail(Problem::MissingValue);
        return nullptr;
    }
    auto const whole = valueBytes();
    if (whole == 0) {
        fail(Problem::DamagedValue);
        return nullptr;
    }

    // The length of the array is compared before anything of the caller's is touched.
    constexpr unsigned arrays = sizeClassOf(static_cast<unsigned char>(ValueTag::Bytes));
    unsigned char const found = byte(at_);
    bool const sameLength = sizeClassOf(found) == arrays && whole - 1 - lengthBytes == bytes;
    if (ValueTag{found} != tag || !sameLength) {
        onlyTypeDiffers_ = sameLength;
        fail(Problem::WrongValue);
        return nullptr;
    }
    auto const* const elements = body_ + at_ + 1 + lengthBytes;
    at_ += static_cast<std::size_t>(whole);
    return elements;
}

void ValueReader::startSubPacket()
{
    if (problem_ == Problem::None && depth_ == mostDepth) {
        fail(Problem::TooDeep);
        return;
    }
    auto const* const value = take(ValueTag::SubPacket, lengthBytes);
    if (value == nullptr)
        return;
    auto const bytes = load<std::uint64_t>(value);
    if (bytes > end() - at_) {
        fail(Problem::DamagedValue);
        return;
    }
    ends_[static_cast<std::size_t>(++depth_)] = at_ + static_cast<std::size_t>(bytes);
}

void ValueReader::endSubPacket()
{
    // Whoever opened it may have failed inside: closing it is no further problem.
    if (problem_ != Problem::None)
        return;
    if (depth_ == 0) {
        fail(Problem::Misuse);
        return;
    }
    at_ = end();
    --depth_;
}

std::uint64_t ValueReader::peekCount() const
{
    if (!hasValues() || valueBytes() == 0)
        return 0;
    auto const bytes = [this] { return lengthAt(at_ + 1); };
    switch (ValueTag{byte(at_)}) {
    case ValueTag::Bytes:
        return bytes();
    case ValueTag::Shorts:
        return bytes() / 2;
    case ValueTag::Ints:
    case ValueTag::Floats:
        return bytes() / 4;
    case ValueTag::Doubles:
        return bytes() / 8;
    default:
        return 0;
    }
}

std::int32_t ValueReader::readInt()
{
    auto const* const value = take(ValueTag::Int, 4);
    return value != nullptr ? load<std::int32_t>(value) : 0;
}

bool ValueReader::readBool()
{
    bool const isTrue = peekTag() == ValueTag::True;
    return take(isTrue ? ValueTag::True : ValueTag::False, 0) != nullptr && isTrue;
}

ValueReader::StoredReference ValueReader::readReference()
{
    if (peekTag() == ValueTag::NullReference) {
        take(ValueTag::NullReference, 0);
        return {true, 0};
    }
    auto const* const value = take(ValueTag::Reference, 8);
    return value != nullptr ? StoredReference{false, load<std::uint64_t>(value)} : StoredReference{true, 0};
}

}  // namespace koPacketFile
