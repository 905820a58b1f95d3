// Channel-by-channel functions of pixels.
//
// Half channels are computed in single precision and rounded back by half's own conversion: once for every
// call, so zipChannels with std::plus is the half addition, rounding included.
#pragma once

#include "koImage/image/pixel_types.h"

#include <type_traits>

namespace koImage {

/// The type in which a channel is computed.
template <class Channel>
using ArithmeticOf = std::conditional_t<std::is_same_v<Channel, half>, float, Channel>;

/// op(channel of p) for each channel.
template <class T, class Op>
FloatPixel3<T> mapChannels(FloatPixel3<T> const& p, Op op)
{
    using A = ArithmeticOf<T>;
    return {T(op(A(p.r))), T(op(A(p.g))), T(op(A(p.b)))};
}

template <class T, class Op>
FloatPixel4<T> mapChannels(FloatPixel4<T> const& p, Op op)
{
    using A = ArithmeticOf<T>;
    return {T(op(A(p.r))), T(op(A(p.g))), T(op(A(p.b))), T(op(A(p.a)))};
}

/// op(channel of p, channel of q) for each channel.
template <class T, class Op>
FloatPixel3<T> zipChannels(FloatPixel3<T> const& p, FloatPixel3<T> const& q, Op op)
{
    using A = ArithmeticOf<T>;
    return {T(op(A(p.r), A(q.r))), T(op(A(p.g), A(q.g))), T(op(A(p.b), A(q.b)))};
}

template <class T, class Op>
FloatPixel4<T> zipChannels(FloatPixel4<T> const& p, FloatPixel4<T> const& q, Op op)
{
    using A = ArithmeticOf<T>;
    return {T(op(A(p.r), A(q.r))), T(op(A(p.g), A(q.g))), T(op(A(p.b), A(q.b))), T(op(A(p.a), A(q.a)))};
}

}  // namespace koImage
