// Lives of the daemon in which applications ask for things, time passes, programs write and end,
// and the kernel has its whims and tells its news.
#include <iterator>

#include "daemon.hpp"
#include "daemon_requests.hpp"

namespace vimbra::tests {
namespace {

// Each is a step of a life; the input has the step's number and then what it needs.
class Life {
 public:
    explicit Life(Input& input) : input_(input) {}

    void Live() {
        for (int steps = 0; steps < kStepsMax && !input_.AtEnd(); steps++) {
            (this->*kSteps[input_.Byte() % std::size(kSteps)])();
        }
        if (last_ % 2 == 0) {
            daemon_.End();
        }
    }

 private:
    static constexpr int kStepsMax = 24;

    // With a body of the right size: what is missing is zero.
    void Request() {
        const RequestKind& kind = kRequestKinds[input_.Byte() % std::size(kRequestKinds)];
        std::string body = input_.Block();
        last_ = body.size();
        body.resize(kind.size);
        daemon_.Request(kind.type, body);
    }
    void RequestOfItsOwnSize() {
        const RequestKind& kind = kRequestKinds[input_.Byte() % std::size(kRequestKinds)];
        daemon_.Request(kind.type, input_.Block());
    }
    void AnyMessage() { daemon_.Send(input_.Block()); }
    void HaveWhims() {
        whims_ = input_.Block();
        whimsInput_ = Input(reinterpret_cast<const u8*>(whims_.data()), whims_.size());
        SetKernelWhims(&whimsInput_);
    }
    void Announce() {
        tests::Announce(input_);
        daemon_.Run();
    }
    void PassTime() { daemon_.Pass(input_.Word() * u64{10}); }
    void EndProgram() {
        const u8 index = input_.Byte();
        const u8 status = input_.Byte();
        ProgramEnds(index, status, input_.Byte() % 32);
        daemon_.Run();
    }
    void WriteAsProgram() {
        const u8 index = input_.Byte();
        ProgramWrites(index, input_.Block());
        daemon_.Run();
    }
    void WriteAsKeptProgram() { daemon_.KeptProgramsWrite(input_.Block()); }
    void Ask() { Require(daemon_.Ask("{\"ask\":\"status\"}\n").ends_with('\n')); }

    static constexpr void (Life::*kSteps[])() = {&Life::Request,
                                                 &Life::RequestOfItsOwnSize,
                                                 &Life::AnyMessage,
                                                 &Life::HaveWhims,
                                                 &Life::Announce,
                                                 &Life::PassTime,
                                                 &Life::EndProgram,
                                                 &Life::WriteAsProgram,
                                                 &Life::WriteAsKeptProgram,
                                                 &Life::Ask};

    Input& input_;
    std::string whims_;
    Input whimsInput_{nullptr, 0};
    size_t last_ = 0;
    Daemon daemon_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    Input input(data, size);
    Life(input).Live();
    return 0;
}

}  // namespace vimbra::tests
