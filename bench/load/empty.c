/* A library that needs what the library under test needs and has nothing of its own. */
extern const int kelchk_bench_nothing;
const int kelchk_bench_nothing = 0;
