#include "kx/threads/processGeneration.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(processGenerationTest, staysInAProcess)
{
    EXPECT_EQ(kx::processGeneration(), kx::processGeneration());
}

TEST(processGenerationTest, isAnotherInAChildAndInItsChild)
{
    const unsigned int here = kx::processGeneration();
    const pid_t child = fork();
    if (child == 0) {
        const unsigned int there = kx::processGeneration();
        const pid_t grandchild = fork();
        if (grandchild == 0)
            _exit(kx::processGeneration() != here && kx::processGeneration() != there ? 0 : 1);
        int status = 1;
        waitpid(grandchild, &status, 0);
        _exit(there != here && status == 0 ? 0 : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(kx::processGeneration(), here);
}

} // namespace
