// No include guard: expands open_calls.def once for each view of a call that a file needs. Before including
// it, define OPEN_CALL(name, parameters, kinds, arguments), where `parameters` is a parenthesised parameter
// list made of OPEN_PARAMETER(kind, argument), and `kinds` and `arguments` are comma-separated lists in
// OPEN_LIST(...).
#define OPEN_LIST(...) __VA_ARGS__
#define OPEN_CALL_0(name) OPEN_CALL(name, OPEN_LIST(), OPEN_LIST(), OPEN_LIST())
#define OPEN_CALL_1(name, K1, a1) \
    OPEN_CALL(name, OPEN_LIST(OPEN_PARAMETER(K1, a1)), OPEN_LIST(K1), OPEN_LIST(a1))
#define OPEN_CALL_2(name, K1, a1, K2, a2)                                                         \
    OPEN_CALL(name, OPEN_LIST(OPEN_PARAMETER(K1, a1), OPEN_PARAMETER(K2, a2)), OPEN_LIST(K1, K2), \
              OPEN_LIST(a1, a2))
#define OPEN_CALL_3(name, K1, a1, K2, a2, K3, a3)                                                      \
    OPEN_CALL(name, OPEN_LIST(OPEN_PARAMETER(K1, a1), OPEN_PARAMETER(K2, a2), OPEN_PARAMETER(K3, a3)), \
              OPEN_LIST(K1, K2, K3), OPEN_LIST(a1, a2, a3))
#define OPEN_CALL_4(name, K1, a1, K2, a2, K3, a3, K4, a4)                                       \
    OPEN_CALL(name,                                                                             \
              OPEN_LIST(OPEN_PARAMETER(K1, a1), OPEN_PARAMETER(K2, a2), OPEN_PARAMETER(K3, a3), \
                        OPEN_PARAMETER(K4, a4)),                                                \
              OPEN_LIST(K1, K2, K3, K4), OPEN_LIST(a1, a2, a3, a4))
#define OPEN_CALL_5(name, K1, a1, K2, a2, K3, a3, K4, a4, K5, a5)                               \
    OPEN_CALL(name,                                                                             \
              OPEN_LIST(OPEN_PARAMETER(K1, a1), OPEN_PARAMETER(K2, a2), OPEN_PARAMETER(K3, a3), \
                        OPEN_PARAMETER(K4, a4), OPEN_PARAMETER(K5, a5)),                        \
              OPEN_LIST(K1, K2, K3, K4, K5), OPEN_LIST(a1, a2, a3, a4, a5))

#include "vswitch/rpc/open_calls.def"

#undef OPEN_CALL
#undef OPEN_PARAMETER
#undef OPEN_LIST
#undef OPEN_CALL_0
#undef OPEN_CALL_1
#undef OPEN_CALL_2
#undef OPEN_CALL_3
#undef OPEN_CALL_4
#undef OPEN_CALL_5
