#include "Marlune/DoubleTapDetector.h"

namespace marlune {

namespace {

bool isSuper(ModifierKey key) {
    return key == ModifierKey::leftSuper || key == ModifierKey::rightSuper;
}

DoubleTapDetector::Side sideOf(ModifierKey key) {
    switch (key) {
    case ModifierKey::rightShift:
    case ModifierKey::rightControl:
    case ModifierKey::rightAlt:
    case ModifierKey::rightSuper:
        return DoubleTapDetector::Side::right;
    default:
        return DoubleTapDetector::Side::left;
    }
}

double secondsBetween(Date from, Date to) {
    return static_cast<double>((to - from).count()) / 1'000'000.0;
}

} // namespace

std::optional<DoubleTapDetector::Action> DoubleTapDetector::handle(const KeyboardEvent& event,
                                                                   Date now) {
    if (const auto* change = std::get_if<keyboard::ModifierChanged>(&event)) {
        return modifier(*change, now);
    }
    if (std::holds_alternative<keyboard::TextTyped>(event) ||
        std::holds_alternative<keyboard::BackspacePressed>(event) ||
        std::holds_alternative<keyboard::KeyPressed>(event)) {
        lastTypingAt_ = now;
        pending_.reset();
    } else if (std::holds_alternative<keyboard::MouseClicked>(event) ||
               std::holds_alternative<keyboard::FocusChanged>(event)) {
        pending_.reset();
    }
    return std::nullopt;
}

std::optional<DoubleTapDetector::Action>
DoubleTapDetector::modifier(const keyboard::ModifierChanged& change, Date now) {
    if (isSuper(change.key)) {
        (change.key == ModifierKey::leftSuper ? leftSuperDown_ : rightSuperDown_) = change.pressed;
        return std::nullopt;
    }
    if (change.pressed) {
        if (refractoryUntil_ && now < *refractoryUntil_) {
            pending_.reset();
            return std::nullopt;
        }
        if (pending_ && pending_->key == change.key && pending_->firstUpAt &&
            pending_->presses.size() == 1) {
            const double window = pending_->hidden ? config_.hiddenWindow : config_.window;
            if (secondsBetween(*pending_->firstUpAt, now) <= window) {
                pending_->presses.push_back(now);
                pending_->downAt = now;
                pending_->commandHeld = pending_->commandHeld || leftSuperDown_ || rightSuperDown_;
                return std::nullopt;
            }
        }
        Pending fresh;
        fresh.side = sideOf(change.key);
        fresh.key = change.key;
        fresh.presses = {now};
        fresh.downAt = now;
        fresh.commandHeld = leftSuperDown_ || rightSuperDown_;
        fresh.hidden = lastTypingAt_ && secondsBetween(*lastTypingAt_, now) <= config_.window;
        pending_ = std::move(fresh);
        return std::nullopt;
    }

    if (!pending_ || pending_->key != change.key) {
        pending_.reset();
        return std::nullopt;
    }
    const double holdLimit = pending_->hidden ? config_.hiddenHoldLimit : config_.holdLimit;
    if (secondsBetween(pending_->downAt, now) > holdLimit) {
        pending_.reset();
        return std::nullopt;
    }
    if (pending_->presses.size() == 1) {
        pending_->firstUpAt = now;
        return std::nullopt;
    }
    const Pending done = std::move(*pending_);
    pending_.reset();
    refractoryUntil_ = addSeconds(now, config_.refractory);
    switch (done.key) {
    case ModifierKey::leftShift:
    case ModifierKey::rightShift:
        return done.commandHeld ? Action::captureChoosing : Action::capture;
    case ModifierKey::leftControl:
    case ModifierKey::rightControl:
        return Action::toggle;
    case ModifierKey::leftAlt:
    case ModifierKey::rightAlt:
        return Action::draw;
    case ModifierKey::leftSuper:
    case ModifierKey::rightSuper:
        break;
    }
    return std::nullopt;
}

} // namespace marlune
