#include "koBase/reference_count.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

namespace ko {

namespace {

// Counts the objects that are alive, and refers to another one.
struct Node : ReferenceCount {
    explicit Node(int& alive) : alive_(alive) { ++alive_; }
    ~Node() override { --alive_; }

    Reference<Node> next;

private:
    int& alive_;
};

struct Leaf : Node {
    using Node::Node;
    int value = 7;
};

}  // namespace

TEST(ReferenceCount, StartsAtZero)
{
    int alive = 0;
    Node const node(alive);
    EXPECT_EQ(node.referenceCount(), 0u);
    EXPECT_EQ(alive, 1);
}

TEST(ReferenceCount, IsThirtyTwoBitsWide)
{
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<ReferenceCount&>().referenceCount()), std::uint32_t>));
}

TEST(ReferenceCount, DeletesTheObjectWhenItFallsFromOneToZero)
{
    int alive = 0;
    ReferenceCount* const node = new Leaf(alive);
    node->addReference();
    node->addReference();
    EXPECT_EQ(node->referenceCount(), 2u);
    node->removeReference();
    EXPECT_EQ(alive, 1);
    node->removeReference();
    EXPECT_EQ(alive, 0);
}

TEST(ReferenceCount, IsNotCopiedWithTheObject)
{
    EXPECT_FALSE(std::is_copy_constructible_v<Node>);
    EXPECT_FALSE(std::is_copy_assignable_v<Node>);
}

TEST(Reference, IsEmptyByDefault)
{
    Reference<Node> const none;
    EXPECT_EQ(none.get(), nullptr);
    EXPECT_FALSE(none);
    EXPECT_TRUE(none == nullptr);
    EXPECT_TRUE(none == Reference<Node>(nullptr));
    EXPECT_TRUE(none == Reference<Node>(static_cast<Node*>(nullptr)));
}

TEST(Reference, KeepsTheObjectAliveUntilTheLastHandleGoes)
{
    int alive = 0;
    {
        Reference<Node> const first(new Node(alive));
        EXPECT_EQ(first->referenceCount(), 1u);
        {
            Reference<Node> const second = first;
            EXPECT_EQ(first->referenceCount(), 2u);
        }
        EXPECT_EQ(first->referenceCount(), 1u);
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(Reference, GivesTheObject)
{
    int alive = 0;
    auto* const leaf = new Leaf(alive);
    Reference<Leaf> const handle = leaf;
    EXPECT_TRUE(handle);
    EXPECT_EQ(handle.get(), leaf);
    EXPECT_EQ(&*handle, leaf);
    EXPECT_EQ(handle->value, 7);
}

TEST(Reference, LeavesTheCountAloneWhenItMoves)
{
    int alive = 0;
    Node* const node = new Node(alive);
    Reference<Node> first(node);

    Reference<Node> second(std::move(first));
    EXPECT_EQ(node->referenceCount(), 1u);
    EXPECT_EQ(first, nullptr);

    Reference<Node> third;
    third = std::move(second);
    EXPECT_EQ(node->referenceCount(), 1u);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(third, node);
}

TEST(Reference, MovesWithoutExceptionsSoThatVectorsMoveIt)
{
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Reference<Node>>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<Reference<Node>>);

    int alive = 0;
    std::vector<Reference<Node>> handles(1, Reference<Node>(new Node(alive)));
    handles.reserve(handles.capacity() + 1);
    EXPECT_EQ(handles.front()->referenceCount(), 1u);
}

TEST(Reference, ConvertsToBase)
{
    int alive = 0;
    {
        Reference<Leaf> leaf(new Leaf(alive));
        Reference<Node> const copied = leaf;
        EXPECT_EQ(leaf->referenceCount(), 2u);
        EXPECT_TRUE(copied == leaf);

        Reference<ReferenceCount> const moved = std::move(leaf);
        EXPECT_EQ(moved->referenceCount(), 2u);
        EXPECT_EQ(leaf, nullptr);

        Reference<Node> assigned;
        assigned = copied;
        EXPECT_EQ(moved->referenceCount(), 3u);
    }
    EXPECT_EQ(alive, 0);
}

TEST(Reference, ConvertsToConst)
{
    int alive = 0;
    {
        Reference<Node> node(new Node(alive));
        Reference<Node const> const copied = node;
        EXPECT_EQ(copied->referenceCount(), 2u);
        EXPECT_TRUE(node == copied);

        Reference<Node const> const moved = std::move(node);
        EXPECT_EQ(moved->referenceCount(), 2u);
        EXPECT_EQ(node, nullptr);
    }
    EXPECT_EQ(alive, 0);
}

TEST(Reference, DoesNotConvertToDerivedOrAwayFromConst)
{
    EXPECT_FALSE((std::is_convertible_v<Reference<Node>, Reference<Leaf>>));
    EXPECT_FALSE((std::is_convertible_v<Reference<Node const>, Reference<Node>>));
    EXPECT_FALSE((std::is_constructible_v<Reference<Node>, Reference<Node const>>));
}

TEST(Reference, CountsAConstObject)
{
    int alive = 0;
    {
        Node const* const node = new Node(alive);
        Reference<Node const> const handle(node);
        EXPECT_EQ(node->referenceCount(), 1u);
    }
    EXPECT_EQ(alive, 0);
}

TEST(Reference, ReleasesTheOldObjectWhenAssigned)
{
    int alive = 0;
    Reference<Node> handle(new Node(alive));
    handle = new Node(alive);
    EXPECT_EQ(alive, 1);
    handle = nullptr;
    EXPECT_EQ(alive, 0);
}

TEST(Reference, MayBeAssignedToItself)
{
    int alive = 0;
    Reference<Node> handle(new Node(alive));
    Reference<Node>& same = handle;

    handle = same;
    ASSERT_TRUE(handle);
    EXPECT_EQ(handle->referenceCount(), 1u);

    handle = std::move(same);
    ASSERT_TRUE(handle);
    EXPECT_EQ(handle->referenceCount(), 1u);

    handle = handle.get();
    EXPECT_EQ(handle->referenceCount(), 1u);
    EXPECT_EQ(alive, 1);
}

TEST(Reference, MayBeAssignedFromWhatTheOldObjectKeepsAlive)
{
    int alive = 0;
    Reference<Node> handle(new Node(alive));
    handle->next = new Node(alive);
    handle->next->next = new Node(alive);
    Node* const second = handle->next.get();
    Node* const third = second->next.get();

    handle = handle->next;
    EXPECT_EQ(handle, second);
    EXPECT_EQ(handle->referenceCount(), 1u);
    EXPECT_EQ(alive, 2);

    handle = std::move(handle->next);
    EXPECT_EQ(handle, third);
    EXPECT_EQ(handle->referenceCount(), 1u);
    EXPECT_EQ(alive, 1);
}

TEST(Reference, ComparesByObject)
{
    int alive = 0;
    Reference<Node> const a(new Node(alive));
    Reference<Node> const b(new Node(alive));
    Reference<Node> const sameAsA = a;
    EXPECT_TRUE(a == sameAsA);
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a == sameAsA.get());
    EXPECT_TRUE(a.get() != b);
    EXPECT_TRUE(nullptr != a);
}

}  // namespace ko
