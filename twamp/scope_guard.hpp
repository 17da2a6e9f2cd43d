// Roll-back of one step: runs its function when the scope is left, unless the step was made to last.
#ifndef TWAMP_SCOPE_GUARD_HPP
#define TWAMP_SCOPE_GUARD_HPP

namespace twamp {

/** Name a guard after what it undoes. It never makes or changes a status. */
template <typename Undo> class [[nodiscard]] scope_guard {
  public:
    explicit scope_guard(Undo undo) : undo_(undo) {}
    ~scope_guard()
    {
        if (armed_) {
            undo_();
        }
    }
    scope_guard(const scope_guard &) = delete;
    scope_guard &operator=(const scope_guard &) = delete;

    void dismiss() { armed_ = false; }

  private:
    Undo undo_;
    bool armed_ = true;
};

} // namespace twamp

#endif
