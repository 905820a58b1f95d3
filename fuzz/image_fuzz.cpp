// Random sequences of operations on a few images of any type and size. Whatever the sequence, nothing may
// touch memory outside the images: the sanitizers watch.
//
// The input is a program: each step takes a byte that names the operation and then what the operation asks
// for. A program that ends in the middle of a step reads zeros.

#include "koImage/koImage.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

using namespace koImage;

namespace {

class Program {
public:
    Program(std::uint8_t const* data, std::size_t size) : next_(data), end_(data + size) {}

    bool atEnd() const { return next_ == end_; }

    template <class T>
    T take()
    {
        T value{};
        auto const left = static_cast<std::size_t>(end_ - next_);
        auto const bytes = sizeof(T) < left ? sizeof(T) : left;
        std::memcpy(&value, next_, bytes);
        next_ += bytes;
        return value;
    }

    unsigned below(unsigned limit) { return take<std::uint8_t>() % limit; }

private:
    std::uint8_t const* next_;
    std::uint8_t const* end_;
};

constexpr int mostPixels = 1 << 14;
constexpr unsigned slotCount = 4;

/// Mostly small; sometimes any pair whose wrapped product is small, negative sizes included.
std::array<int, 2> takeSize(Program& program)
{
    if (program.below(4) != 0)
        return {static_cast<int>(program.below(40)), static_cast<int>(program.below(40))};
    auto const width = program.take<std::int32_t>();
    auto const height = program.take<std::int32_t>();
    return wrappedProduct(width, height) <= mostPixels ? std::array{width, height} : std::array{65536, 65536};
}

/// An image, and the memory that it borrows when it does.
struct Slot {
    ko::Reference<Image> image;
    std::unique_ptr<std::byte[]> borrowed;

    void reset(ko::Reference<Image> next)
    {
        image = std::move(next);
        borrowed.reset();
    }
};

class Interpreter {
public:
    explicit Interpreter(Program program) : program_(program)
    {
        for (Slot& slot : slots_)
            slot.reset(imageCreateByType(PixelTypeId::Byte));
    }

    void run()
    {
        // A blur or a resize of the largest image costs some milliseconds: the length of a program is
        // bounded.
        for (int steps = 0; steps < 64 && !program_.atEnd(); ++steps)
            step();
    }

private:
    Slot& slot() { return slots_[program_.below(slotCount)]; }
    Image& image() { return *slot().image; }

    template <class Pixel>
    TypedImage<Pixel>* as(Image& image)
    {
        return image.pixelType() == pixelTypeIdOf<Pixel> ? &static_cast<TypedImage<Pixel>&>(image) : nullptr;
    }

    void step();
    void borrow();
    void write();
    void convert();
    void sample();

    Program program_;
    std::array<Slot, slotCount> slots_;
};

void Interpreter::borrow()
{
    Slot& target = slot();
    auto const size = takeSize(program_);
    auto const pixels = static_cast<std::size_t>(std::max(wrappedProduct(size[0], size[1]), 0));

    // An array of exactly the size that it promises: the address sanitizer sees the first byte beyond.
    std::unique_ptr<std::byte[]> memory;
    dispatchPixel(target.image->pixelType(), StoredPixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        memory.reset(new std::byte[pixels * sizeof(Pixel)]());
        auto next = std::make_unique<TypedImage<Pixel>>();
        next->borrow(reinterpret_cast<Pixel*>(memory.get()), size[0], size[1]);
        target.reset(next.release());
    });
    target.borrowed = std::move(memory);
}

void Interpreter::write()
{
    Image& target = image();
    auto const seed = program_.take<std::uint32_t>();
    auto* const bytes = static_cast<unsigned char*>(target.data());
    if (bytes == nullptr || target.pixelCount() < 1)
        return;
    auto const count =
        static_cast<std::size_t>(target.pixelCount()) * static_cast<std::size_t>(target.bytesPerPixel());
    std::uint32_t state = seed;
    for (std::size_t i = 0; i < count; ++i) {
        state = state * 1664525u + 1013904223u;
        bytes[i] = static_cast<unsigned char>(state >> 24);
    }
}

void Interpreter::convert()
{
    Image& source = image();
    Image& target = image();
    if (auto* const a = as<float>(source)) {
        if (auto* const b = as<unsigned char>(target))
            imageConvert(*a, *b);
    } else if (auto* const c = as<Byte4>(source)) {
        if (auto* const b = as<Float3>(target))
            imageConvert(*c, *b);
        if (auto* const b = as<Float4>(target))
            imageConvert(*c, *b);
    } else if (auto* const f = as<Float3>(source)) {
        if (auto* const b = as<Float4>(target))
            imageConvert(*f, *b);
    }
}

void Interpreter::sample()
{
    Image& source = image();
    auto const u = program_.take<float>();
    auto const v = program_.take<float>();
    auto const into = [&]<class Pixel, class Out>(Pixel, Out out) {
        if (auto* const typed = as<Pixel>(source); typed != nullptr && !pixelsOf<Pixel>(source).empty())
            sampleBilinear(*typed, u, v, out);
    };
    into(Byte4{}, std::array<std::uint32_t, 4>{});
    into(Half4{}, Half4{});
    into(0.0f, 0.0f);
    into(Float3{}, Float3{});
    into(Float4{}, Float4{});
}

void Interpreter::step()
{
    switch (program_.below(26)) {
    case 0:
        if (Image* const made = imageCreateByType(PixelTypeId{static_cast<std::int32_t>(program_.below(11))}))
            slot().reset(made);
        break;
    case 1: {
        Image& target = image();
        auto const [width, height] = takeSize(program_);
        target.resize(width, height);
        break;
    }
    case 2:
        borrow();
        break;
    case 3:
        write();
        break;
    case 4: {
        Image const& source = image();
        ko::Reference<Image> copy(source.clone());
        slot().reset(copy);
        break;
    }
    case 5: {
        Image& target = image();
        bool const horizontal = program_.below(2) != 0;
        target.setWrap(horizontal, program_.below(2) != 0);
        break;
    }
    case 6: {
        Image const& source = image();
        Image& target = image();
        auto const x = program_.take<std::int8_t>();
        imageCopyIn(source, target, x, program_.take<std::int8_t>());
        break;
    }
    case 7: {
        Image const& source = image();
        Image& target = image();
        auto const x = program_.take<std::int8_t>();
        imageCopyOut(source, target, x, program_.take<std::int8_t>());
        break;
    }
    case 8:
        convert();
        break;
    case 9: {
        Slot& target = slot();
        Image const* const before = target.image.get();
        if (convertToType(target.image, PixelTypeId{static_cast<std::int32_t>(program_.below(11))}) &&
            target.image.get() != before)
            target.borrowed.reset();
        break;
    }
    case 10:
        fillWhite(image());
        break;
    case 11:
        fillBlack(image());
        break;
    case 12:
        imageFlipVertical(image());
        break;
    case 13:
        imageFlipHorizontal(image());
        break;
    case 14:
        imageSwapRedBlue(image());
        break;
    case 15:
    case 16: {
        Image& target = image();
        // A raw buffer must hold all its rows, which an image whose product wraps does not.
        bool const holdsItsRows = std::int64_t{target.width()} * target.height() == target.pixelCount();
        if (target.pixelType() == PixelTypeId::Byte4 && holdsItsRows) {
            auto* const raw = static_cast<unsigned char*>(target.data());
            if (program_.below(2) != 0)
                convert2PreMultipliedAlpha(raw, target.width(), target.height(), 4);
            else
                convert2NonPreMultipliedAlpha(raw, target.width(), target.height(), 4);
        }
        break;
    }
    case 17:
    case 18: {
        using Operation = void (*)(Image const&, Image const&, Image&);
        static constexpr Operation operations[] = {imageAdd, imageSub, imageMult, imageDiv};
        Operation const operation = operations[program_.below(4)];
        Image const& a = image();
        Image const& b = image();
        operation(a, b, image());
        break;
    }
    case 19: {
        auto* const a = as<unsigned char>(image());
        auto* const b = as<unsigned char>(image());
        auto* const result = as<unsigned char>(image());
        if (a != nullptr && b != nullptr && result != nullptr) {
            if (program_.below(2) != 0)
                imageMin(*a, *b, *result);
            else
                imageMax(*a, *b, *result);
        }
        break;
    }
    case 20:
        static_cast<void>(imageAverage(image()));
        break;
    case 21:
    case 22: {
        Image const& source = image();
        Image& result = image();
        int const diameter =
            program_.below(4) == 0 ? program_.take<std::int32_t>() : static_cast<int>(program_.below(100));
        bool const wrapX = program_.below(2) != 0;
        imageBlur(source, result, diameter, wrapX, program_.below(2) != 0);
        break;
    }
    case 23: {
        auto* const mask = as<unsigned char>(image());
        auto* const values = as<unsigned char>(image());
        if (mask != nullptr && values != nullptr)
            imageInterpolate(*mask, *values);
        break;
    }
    case 24: {
        Image const& source = image();
        auto const [width, height] = takeSize(program_);
        if (Image* const resized = resize(source, width, height, program_.below(2) != 0))
            slot().reset(resized);
        break;
    }
    default:
        sample();
        break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    Interpreter(Program(data, size)).run();
    return 0;
}
