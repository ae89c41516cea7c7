// A function of the application's, which its threads may set while a listener's thread calls it.
#ifndef VIMBRA_LIB_BASE_SHARED_FUNCTION_HPP
#define VIMBRA_LIB_BASE_SHARED_FUNCTION_HPP

namespace vimbra {

template <typename Function>
class SharedFunction {
 public:
    void Set(Function function) { __atomic_store_n(&function_, function, __ATOMIC_RELEASE); }
    Function Get() const { return __atomic_load_n(&function_, __ATOMIC_ACQUIRE); }

 private:
    Function function_ = nullptr;
};

}  // namespace vimbra

#endif
