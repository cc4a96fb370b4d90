// Fixture of the contract: the library loaded, and its first chip. What a board has, it says itself.
#ifndef CONTRACT_TEST_H
#define CONTRACT_TEST_H

#include <Veltrano.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

class CContractTest : public testing::Test
{
public:
    void SetUp() override
    {
        Veltrano_LoadLite();
        m_hDev = Veltrano_GetDevice(0);
        if (m_hDev == nullptr)
        {
            GTEST_SKIP() << "this board has no chip";
        }
    }
    void TearDown() override { Veltrano_UnLoad(); }

    VtDevice_Handle m_hDev = nullptr;
};

#endif
