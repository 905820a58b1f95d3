#include "koBase/koBase.h"

#include <gtest/gtest.h>

TEST(KoBase, BringsEveryClassWithOneHeader)
{
    struct Alg : koUtil::ThreadedAlg {
        void work(int, int) override { ++parts; }
        int parts = 0;
    } alg;
    koUtil::ThreadPool(1).run(alg);
    EXPECT_EQ(alg.parts, 1);

    koUtil::Progress progress;
    koUtil::setProgress(&progress, 1.0);
    EXPECT_FALSE(koUtil::Error());
    EXPECT_TRUE(koOS::Filename().empty());
    EXPECT_FALSE(ko::Reference<ko::ReferenceCount>());
    EXPECT_EQ(ko::vector<int>().size(), ko::list<int>().size());
    EXPECT_EQ((koUtil::ArrayN<2, int>(3, 4).size()), 12);
    EXPECT_EQ(koUtil::IntRange2d().width, 0);
    EXPECT_EQ(koLinear::VectorFlt().x, 0.0f);
    EXPECT_EQ(koLinear::ProjMatrix(1.0)(3, 3), 1.0);
    EXPECT_LT(koLinear::epsilonTolFlt, 1.0f);
}
