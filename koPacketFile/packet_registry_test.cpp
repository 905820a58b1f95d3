#include "koPacketFile/packet_registry.h"

#include "koPacketFile/encoding.h"

#include <gtest/gtest.h>

namespace {

using koPacketFile::Problem;
using koPacketFile::typeIdOf;

class Counted : public ioPacketType {
public:
    Counted(char const* name, int& alive) : ioPacketType(name), alive_(alive) { ++alive_; }
    ~Counted() override { --alive_; }
    void read(ioReadContext&, ioClientReadContext*) override {}

private:
    int& alive_;
};

TEST(PacketRegistry, FindsATypeByTheIdOfItsName)
{
    int alive = 0;
    ioPacketRegistry registry;
    auto* const b = new Counted("b", alive);
    registry.supportedType(new Counted("a", alive));
    registry.supportedType(b);
    registry.supportedType(new Counted("c", alive));
    EXPECT_EQ(registry.find(typeIdOf("b")), b);
    EXPECT_EQ(registry.find(typeIdOf("d")), nullptr);
    EXPECT_FALSE(registry.error());
}

TEST(PacketRegistry, DeletesItsTypes)
{
    int alive = 0;
    {
        ioPacketRegistry registry;
        registry.supportedType(new Counted("a", alive));
        registry.supportedType(new Counted("b", alive));
        EXPECT_EQ(alive, 2);
    }
    EXPECT_EQ(alive, 0);
}

TEST(PacketRegistry, IgnoresNull)
{
    ioPacketRegistry registry;
    registry.supportedType(nullptr);
    EXPECT_FALSE(registry.error());
}

TEST(PacketRegistry, KeepsATypeThatIsGivenTwice)
{
    int alive = 0;
    ioPacketRegistry registry;
    auto* const type = new Counted("a", alive);
    registry.supportedType(type);
    registry.supportedType(type);
    EXPECT_EQ(registry.error().problem, Problem::Misuse);
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(registry.find(typeIdOf("a")), type);
}

TEST(PacketRegistry, KeepsTheFirstOfTwoTypesWithOneName)
{
    int alive = 0;
    ioPacketRegistry registry;
    auto* const first = new Counted("a", alive);
    registry.supportedType(first);
    registry.supportedType(new Counted("a", alive));
    EXPECT_EQ(registry.error().problem, Problem::NameCollision);
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(registry.find(typeIdOf("a")), first);
}

TEST(PacketRegistry, RefusesNamesThatNoFileCanHold)
{
    int alive = 0;
    for (std::string const& name : {std::string(), std::string(256, 'x')}) {
        ioPacketRegistry registry;
        registry.supportedType(new Counted(name.c_str(), alive));
        EXPECT_EQ(registry.error().problem, Problem::InvalidName);
        EXPECT_EQ(alive, 0);
    }
    ioPacketRegistry registry;
    registry.supportedType(new Counted(std::string(255, 'x').c_str(), alive));
    EXPECT_FALSE(registry.error());
    ioPacketRegistry nameless;
    nameless.supportedType(new Counted(nullptr, alive));
    EXPECT_EQ(nameless.error().problem, Problem::InvalidName);
}

}  // namespace
