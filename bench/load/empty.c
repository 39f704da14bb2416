/* An empty library; its build links it to what the library under test needs. */
extern const int kelchk_bench_nothing;
const int kelchk_bench_nothing = 0;
