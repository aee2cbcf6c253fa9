/* SPDX-License-Identifier: MIT */
/* Lists. They allocate nothing, so these are the times of the calls and of walking. */
#include <vector>

#include "bench.h"
#include "vos.h"

namespace {

constexpr int64_t kFew = 10, kMany = 1000;

/* A queue of constant length: the first node is moved to the end. */
void rotateSingly(benchmark::State &state) {
    SLL_LIST list;
    std::vector<SLL_NODE> nodes(static_cast<std::size_t>(state.range(0)));
    WORKS(sllInit(&list) == VOS_OK);
    for (SLL_NODE &node : nodes) sllPutAtTail(&list, &node);
    for (auto _ : state) sllPutAtTail(&list, sllGet(&list));
    WORKS(sllCount(&list) == nodes.size());
}
BENCHMARK(rotateSingly)->Name("list/sllGet and sllPutAtTail")->Arg(kFew)->Arg(kMany);

struct Doubly {
    explicit Doubly(int64_t count) : nodes(static_cast<std::size_t>(count)) {
        lstInit(&list);
        for (LST_NODE &node : nodes) lstAdd(&list, &node);
    }
    LST_LIST list;
    std::vector<LST_NODE> nodes;
};

void rotateDoubly(benchmark::State &state) {
    Doubly doubly(state.range(0));
    for (auto _ : state) lstAdd(&doubly.list, lstGet(&doubly.list));
    WORKS(lstCount(&doubly.list) == state.range(0));
}
BENCHMARK(rotateDoubly)->Name("list/lstGet and lstAdd")->Arg(kFew)->Arg(kMany);

void takeOutAndPutBack(benchmark::State &state) {
    Doubly doubly(state.range(0));
    LST_NODE *const middle = &doubly.nodes[doubly.nodes.size() / 2];
    for (auto _ : state) {
        LST_NODE *const before = lstPrevious(middle);
        lstDelete(&doubly.list, middle);
        lstInsert(&doubly.list, before, middle);
    }
    WORKS(lstCount(&doubly.list) == state.range(0));
}
BENCHMARK(takeOutAndPutBack)->Name("list/lstDelete and lstInsert")->Arg(kFew)->Arg(kMany);

void walk(benchmark::State &state) {
    Doubly doubly(state.range(0));
    for (auto _ : state)
        for (LST_NODE *node = lstFirst(&doubly.list); node != nullptr; node = lstNext(node))
            benchmark::DoNotOptimize(node);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(walk)->Name("list/walk by lstNext")->Arg(kFew)->Arg(kMany);

void find(benchmark::State &state) {
    Doubly doubly(state.range(0));
    for (auto _ : state) WORKS(lstFind(&doubly.list, &doubly.nodes.back()) == state.range(0));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(find)->Name("list/lstFind of the last")->Arg(kFew)->Arg(kMany);

}  // namespace
