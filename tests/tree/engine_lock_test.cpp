// The engine's lock serves in the order it was asked for, so a command asking
// while a walk runs goes before the solver thread's next walk.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tree/engine.h"

TEST(EngineLock, AWaitingCommandGoesBeforeTheHoldersNextTurn) {
    FifoMutex lock;
    std::vector<int> order;
    lock.lock();  // a walk in progress
    std::thread command([&] {
        lock.lock();
        order.push_back(2);
        lock.unlock();
    });
    while (!lock.has_waiters()) std::this_thread::yield();
    order.push_back(1);
    lock.unlock();
    lock.lock();  // the solver thread's next walk, asked for at once
    order.push_back(3);
    lock.unlock();
    command.join();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}
