#include "kx/base/CBase.h"

#include "kx/base/CError.h"
#include "kx/base/P.h"
#include "tests/support/CLogRecorder.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

class IName : public virtual kx::IBase {
public:
    virtual int name() const = 0;
};

class CThing : public kx::CBase, public virtual IName {
public:
    explicit CThing(int& alive, int name = 0)
        : m_alive(alive)
        , m_name(name)
    {
        ++m_alive;
    }
    CThing(const CThing& other)
        : IName(other)
        , CBase(other)
        , m_alive(other.m_alive)
        , m_name(other.m_name)
    {
        ++m_alive;
    }
    ~CThing() override
    {
        --m_alive;
        if (m_atEnd)
            m_atEnd(*this);
    }

    int name() const override { return m_name; }

    std::function<void(CThing&)> m_atEnd;

private:
    int& m_alive;
    int m_name;
};

class CDerivedThing : public CThing {
public:
    using CThing::CThing;
};

class PTest : public testing::Test {
protected:
    int m_alive = 0;
};

TEST_F(PTest, isEmptyByDefault)
{
    const kx::P<CThing> none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(none.get(), nullptr);
    EXPECT_EQ(kx::P<CThing>(nullptr), none);
}

/// Calls something else by the names of the counting.
class CLock : public CThing {
public:
    using CThing::addRef;
    using CThing::CThing;
    using CThing::release;

    void addRef() { ++m_calls; }
    void release() { ++m_calls; }

    int m_calls = 0;
};

TEST_F(PTest, countsWhereAClassHasAReleaseOfItsOwn)
{
    {
        const auto lock = kx::newObj<CLock>(m_alive);
        EXPECT_EQ(lock->m_calls, 0);
    }
    EXPECT_EQ(m_alive, 0);
}

TEST_F(PTest, keepsItsObjectAliveAndDeletesIt)
{
    {
        const auto thing = kx::newObj<CThing>(m_alive, 7);
        EXPECT_TRUE(thing);
        EXPECT_EQ(thing->name(), 7);
        EXPECT_EQ((*thing).name(), 7);
        EXPECT_EQ(m_alive, 1);
    }
    EXPECT_EQ(m_alive, 0);
}

TEST_F(PTest, sharesItsObjectWithCopies)
{
    auto first = kx::newObj<CThing>(m_alive);
    const auto second = first;
    first = nullptr;
    EXPECT_EQ(m_alive, 1);
    EXPECT_NE(second, nullptr);
}

TEST_F(PTest, handsItsObjectOverWhenMoved)
{
    auto first = kx::newObj<CThing>(m_alive);
    CThing* const object = first.get();
    const auto second = std::move(first);
    EXPECT_EQ(second.get(), object);
    EXPECT_EQ(m_alive, 1);
}

TEST_F(PTest, survivesAssignmentToItself)
{
    auto thing = kx::newObj<CThing>(m_alive);
    auto& same = thing;
    thing = same;
    EXPECT_EQ(m_alive, 1);
}

TEST_F(PTest, convertsToBaseAndConst)
{
    const auto thing = kx::newObj<CDerivedThing>(m_alive, 3);
    const kx::P<CThing> base = thing;
    const kx::PC<IName> name = base;
    EXPECT_EQ(name->name(), 3);
    EXPECT_EQ(base, thing);
    EXPECT_EQ(m_alive, 1);
}

TEST_F(PTest, takesAReferenceFromARawPointer)
{
    const auto thing = kx::newObj<CThing>(m_alive);
    {
        const kx::P<CThing> another = thing.get();
    }
    EXPECT_EQ(m_alive, 1);
}

TEST_F(PTest, comparesWithRawPointers)
{
    const auto thing = kx::newObj<CThing>(m_alive);
    EXPECT_EQ(thing, thing.get());
    EXPECT_NE(thing, nullptr);
    EXPECT_NE(thing, kx::newObj<CThing>(m_alive));
}

TEST_F(PTest, comparesAReferenceToConstWithRawPointers)
{
    const auto thing = kx::newObj<CThing>(m_alive);
    const kx::PC<CThing> constant = thing;
    const CThing* const constantPointer = thing.get();
    EXPECT_EQ(constant, constantPointer);
    EXPECT_EQ(constant, thing.get());
    EXPECT_EQ(thing, constantPointer);
    EXPECT_NE(constant, kx::newObj<CThing>(m_alive).get());
}

TEST_F(PTest, castsToAnotherInterface)
{
    const kx::P<kx::IBase> thing = kx::newObj<CThing>(m_alive, 5);
    EXPECT_EQ(kx::castTo<IName>(thing)->name(), 5);
    EXPECT_EQ(kx::castTo<kx::CError>(thing), nullptr);
    EXPECT_EQ(kx::castTo<IName>(kx::P<kx::IBase>()), nullptr);
}

TEST_F(PTest, countsACopyOfAnObjectFromZero)
{
    const auto thing = kx::newObj<CThing>(m_alive);
    {
        const auto copy = kx::newObj<CThing>(*thing);
        EXPECT_EQ(m_alive, 2);
    }
    EXPECT_EQ(m_alive, 1);
}

TEST_F(PTest, keepsTheCountsOfObjectsThatAreAssigned)
{
    const auto first = kx::newObj<kx::CBase>();
    const auto second = kx::newObj<kx::CBase>();
    const auto third = second;
    *first = *second; // would leave a wrong count, seen by the sanitizers when the references go
}

TEST_F(PTest, isHarmlessInTheDestructorOfItsObject)
{
    int calls = 0;
    auto thing = kx::newObj<CThing>(m_alive);
    thing->m_atEnd = [&calls](CThing& ended) {
        const kx::P<CThing> self = &ended;
        ++calls;
    };
    thing = nullptr;
    EXPECT_EQ(calls, 1);
}

TEST_F(PTest, refusesToCastAnObjectThatIsBeingDeleted)
{
    kx::String message;
    auto thing = kx::newObj<CThing>(m_alive);
    thing->m_atEnd = [&message](CThing& ended) {
        try {
            ended.checkCastAllowed();
        } catch (const kx::CError& error) {
            message = error.getMessage();
        }
    };
    thing->checkCastAllowed();
    thing = nullptr;
    EXPECT_EQ(message, "The object is being deleted and cannot be handed out any more.");
}

TEST_F(PTest, refusesToGiveAnInterfaceOfAnObjectThatIsBeingDeleted)
{
    bool refused = false;
    auto thing = kx::newObj<CThing>(m_alive);
    thing->m_atEnd = [&refused](CThing& ended) {
        const kx::P<kx::IBase> self = &ended;
        try {
            kx::castTo<IName>(self);
        } catch (const kx::CError&) {
            refused = true;
        }
    };
    thing = nullptr;
    EXPECT_TRUE(refused);
}

/// Objects that were not made with newObj().
class MisplacedObjectTest : public PTest {
protected:
    static constexpr char referenced[] = "error: Wrong use of a counted object.: An object goes while references to it "
                                         "are held. Make it with kx::newObj().";
    static constexpr char onStack[]
        = "error: Wrong use of a counted object.: An object on the stack has lost its last reference. Make it with "
          "kx::newObj().";

    // AddressSanitizer keeps variables elsewhere, to find out about their use after a return.
    __attribute__((no_sanitize("address"))) void loseOnStack()
    {
        CThing thing(m_alive);
        const kx::P<CThing> reference = &thing;
    }

    __attribute__((no_sanitize("address"))) static void loseInsideAnother()
    {
        kx::CBase things[2];
        const kx::P<kx::CBase> reference = &things[1];
    }

    std::vector<std::string> takeLog() { return m_log.lines(); }

private:
    support::CLogRecorder m_log;
};

TEST_F(MisplacedObjectTest, mayStandOnTheStackWhereNobodyRefersToIt)
{
    {
        const CThing thing(m_alive);
        const CThing copy = thing;
    }
    EXPECT_EQ(m_alive, 0);
    EXPECT_EQ(takeLog(), std::vector<std::string>());
}

TEST_F(MisplacedObjectTest, isToldWhenItGoesWhileReferencesAreHeld)
{
    alignas(CThing) std::array<std::byte, sizeof(CThing)>
        memory; // outlives the object, so that the reference can be left
    auto* const thing = new (memory.data()) CThing(m_alive);
    thing->addRef();
    thing->~CThing();
    EXPECT_EQ(takeLog(), std::vector<std::string>{referenced});
}

TEST_F(MisplacedObjectTest, isToldAndNotDeletedWhenItLosesItsLastReferenceOnTheStack)
{
    loseOnStack();
    EXPECT_EQ(m_alive, 0);
    EXPECT_EQ(takeLog(), std::vector<std::string>{onStack});
}

TEST_F(MisplacedObjectTest, isFoundOnTheStackOfEveryThread)
{
    std::thread([this] { loseOnStack(); }).join();
    EXPECT_EQ(takeLog(), std::vector<std::string>{onStack});
}

TEST_F(MisplacedObjectTest, isFoundInsideAnotherObjectOnTheStack)
{
    loseInsideAnother();
    EXPECT_EQ(takeLog(), std::vector<std::string>{onStack});
}

TEST_F(MisplacedObjectTest, isNoObjectOfAnotherThreadsHeap)
{
    auto thing = kx::newObj<CThing>(m_alive);
    std::thread([moved = std::move(thing)]() mutable { moved = nullptr; }).join();
    EXPECT_EQ(m_alive, 0);
    EXPECT_EQ(takeLog(), std::vector<std::string>());
}

TEST_F(PTest, countsFromManyThreads)
{
    {
        const auto thing = kx::newObj<CThing>(m_alive);
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([copy = thing] {
                for (int round = 0; round < 10'000; ++round)
                    const auto another = copy;
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(m_alive, 1);
    }
    EXPECT_EQ(m_alive, 0);
}

} // namespace
