#include "koBase/error.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

namespace koUtil {

namespace {

void expectError(Error const& error, int code, std::string const& message)
{
    EXPECT_EQ(error.code(), code);
    EXPECT_EQ(error.message(), message);
    EXPECT_EQ(static_cast<bool>(error), code != 0);
}

Error returned(Error error)
{
    return error;
}

}  // namespace

TEST(Error, IsNoneByDefault)
{
    expectError(Error(), 0, "");
}

TEST(Error, HoldsItsCodeAndItsFormattedMessage)
{
    expectError(Error(1, "Image-based lighting file not found."), 1, "Image-based lighting file not found.");
    expectError(Error(-7, "%s: line %d, %.2f", "a.txt", 12, 0.5), -7, "a.txt: line 12, 0.50");
    expectError(Error(2, "100%%"), 2, "100%");
}

TEST(Error, IsNoneWhenItsCodeIsZero)
{
    expectError(Error(0, "all is well"), 0, "all is well");
}

TEST(Error, TakesMessagesOfAnyLength)
{
    for (int const length : {0, 1, 15, 16, 255, 256, 1023, 1024, 4096, 100000}) {
        std::string const text(static_cast<std::size_t>(length), 'x');
        expectError(Error(1, "%s", text.c_str()), 1, text);
        expectError(Error(1, "%s, %d", text.c_str(), length), 1, text + ", " + std::to_string(length));
    }
}

TEST(Error, KeepsTheFormatWhenItCannotBeFormatted)
{
    // No locale has a multibyte character for a lone surrogate.
    expectError(Error(3, "name %ls", L"\xD800"), 3, "name %ls");
}

TEST(Error, IsCopiedFromAConstErrorAsAValue)
{
    Error const original(4, "four");
    Error const copy(original);
    expectError(copy, 4, "four");
    expectError(original, 4, "four");
}

TEST(Error, IsCopiedByInitialisationAndAssignmentAsAValue)
{
    Error original(4, "four");
    {
        Error copy = original;
        expectError(copy, 4, "four");
        copy = Error(5, "five");

        Error assigned;
        assigned = original;
        expectError(assigned, 4, "four");
        assigned = Error(6, "six");
    }
    expectError(original, 4, "four");
}

TEST(Error, IsPassedAndReturnedAsAValue)
{
    Error original(4, "four");
    {
        Error result = returned(original);
        expectError(result, 4, "four");
        result = Error(5, "five");
    }
    expectError(original, 4, "four");
}

TEST(Error, LeavesNoneBehindWhenItMoves)
{
    Error first(4, "a message that is too long for the string object itself");
    Error second(std::move(first));
    expectError(first, 0, "");
    expectError(second, 4, "a message that is too long for the string object itself");

    Error third(9, "nine");
    third = std::move(second);
    expectError(second, 0, "");
    expectError(third, 4, "a message that is too long for the string object itself");
}

TEST(Error, MayBeAssignedToItself)
{
    Error error(4, "four");
    Error& same = error;
    error = same;
    expectError(error, 4, "four");
    error = std::move(same);
    expectError(error, 4, "four");
}

TEST(Error, LivesInContainersAsAValue)
{
    Error original(4, "four");
    {
        std::vector<Error> errors;
        errors.push_back(original);
        errors.push_back(Error(5, "five"));
        std::vector<Error> const copies = errors;
        expectError(copies[0], 4, "four");
        expectError(copies[1], 5, "five");
        errors[0] = Error(6, "six");
    }
    expectError(original, 4, "four");
}

TEST(Error, NestsOnlyWhenAskedTo)
{
    EXPECT_TRUE((std::is_constructible_v<Error, Error&>));
    EXPECT_TRUE((std::is_convertible_v<Error&, Error>)) << "by the copying constructor";
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Error>);

    // A class that holds an error copies it.
    struct Holder {
        Error error;
    };
    Holder original{Error(4, "four")};
    {
        Holder copy(original);
        expectError(copy.error, 4, "four");
        copy.error = Error(5, "five");
    }
    expectError(original.error, 4, "four");
}

TEST(NestedError, PassesItsErrorOnWhenItEnds)
{
    Error caller;
    {
        Error nested(caller);
        nested = Error(1, "The file %s is missing.", "a.txt");
        expectError(nested, 1, "The file a.txt is missing.");
        expectError(caller, 0, "");
    }
    expectError(caller, 1, "The file a.txt is missing.");
}

TEST(NestedError, ReplacesAnEarlierErrorOfTheCaller)
{
    Error caller(8, "earlier");
    {
        Error nested(caller);
        nested = Error(1, "later");
    }
    expectError(caller, 1, "later");
}

TEST(NestedError, BeginsWithNoneAndThenLeavesTheCallersErrorAsItIs)
{
    Error caller(8, "earlier");
    {
        Error const nested(caller);
        expectError(nested, 0, "");
    }
    expectError(caller, 8, "earlier");
}

TEST(NestedError, PassesNothingOnAfterItsErrorWasTakenBack)
{
    Error caller(8, "earlier");
    {
        Error nested(caller);
        nested = Error(1, "premature");
        nested = Error();
    }
    expectError(caller, 8, "earlier");
}

TEST(NestedError, PassesTheLastOfSeveralErrorsOn)
{
    Error caller;
    {
        Error nested(caller);
        nested = Error(1, "first");
        Error const second(2, "second");
        nested = second;
    }
    expectError(caller, 2, "second");
}

TEST(NestedError, PassesOnThroughEveryLevel)
{
    Error caller;
    {
        Error outer(caller);
        {
            Error inner(outer);
            inner = Error(3, "deep");
        }
        expectError(outer, 3, "deep");
        expectError(caller, 0, "");
    }
    expectError(caller, 3, "deep");
}

TEST(NestedError, ReachesTheCallerThroughAReference)
{
    auto const fail = [](Error& error) {
        Error nested(error);
        nested = Error(5, "five");
    };
    Error caller;
    {
        Error nested(caller);
        fail(nested);
    }
    expectError(caller, 5, "five");
}

TEST(NestedError, KeepsItsLinkToItself)
{
    Error caller;
    Error nested(caller);
    nested = Error(1, "one");
    {
        Error initialised = nested;
        Error constructed(std::as_const(nested));
        Error assigned;
        assigned = nested;
        expectError(initialised, 1, "one");
        expectError(constructed, 1, "one");
        expectError(assigned, 1, "one");
    }
    expectError(nested, 1, "one");
    expectError(caller, 0, "");
}

TEST(NestedError, PassesNothingOnThatWasMovedAway)
{
    Error caller;
    {
        Error nested(caller);
        nested = Error(1, "one");
        Error const moved(std::move(nested));
        expectError(moved, 1, "one");
    }
    expectError(caller, 0, "");
}

TEST(NestedError, StillReachesTheCallerAfterAMove)
{
    Error caller;
    {
        Error nested(caller);
        nested = Error(1, "one");
        Error const moved(std::move(nested));
        nested = Error(2, "two");
    }
    expectError(caller, 2, "two");
}

TEST(NestedError, GivesItsOldErrorToNobodyWhenAssignedFromANestedOne)
{
    Error caller;
    Error other(7, "seven");
    other = Error(caller);
    expectError(other, 0, "");
    expectError(caller, 0, "");
}

TEST(NestedError, PassesOnWhenAnExceptionEndsItsScope)
{
    Error caller;
    try {
        Error nested(caller);
        nested = Error(1, "one");
        throw 0;
    } catch (int) {
    }
    expectError(caller, 1, "one");
}

}  // namespace koUtil
