// The engine's lock serves in the order it was asked for, so a command asking
// while a walk runs goes before the solver thread's next walk.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tree/engine.h"

TEST(EngineLock, AWaitingCommandGoesBeforeTheHoldersNextTurn) {
    // A plain mutex lets the holder win this race most of the time, not
    // every time: twenty rounds make its losing all of them unlikely.
    for (int round = 0; round < 20; ++round) {
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
        ASSERT_EQ(order, (std::vector<int>{1, 2, 3})) << "round " << round;
    }
}
