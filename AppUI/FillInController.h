#pragma once

#include "ExpansionEngine/FillInSession.h"
#include "Marlune/FillInPresenter.h"

#include <QObject>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QWidget;

namespace marlune {

// The fill-in form: a small window near the pointer with one input per field (a line for
// text, a list for a single choice, tick boxes for several, a date picker), opened on the
// defaults and the snippet's last answers. Return moves to the next field and inserts on the
// last; Escape or closing the window cancels. The focus goes back to the window that had it,
// so the commit types into the field the keyword was typed in.
class FillInController : public QObject, public FillInPresenter {
    Q_OBJECT
public:
    struct FocusKeeper {
        std::function<std::uint32_t()> save;
        std::function<void(std::uint32_t)> restore;
    };

    explicit FillInController(FocusKeeper focus = {});
    ~FillInController() override;

    void present(const TypedExpansion::FillInRequest& request, const Answers& initialValues,
                 Completion done) override;
    void dismiss() override;

    // The open form's window, for tests and automation; null when none is open.
    QWidget* window() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Form;
    void readInputs();
    void focusField(std::int64_t index);
    void finish(bool insert);

    FocusKeeper focus_;
    std::unique_ptr<Form> form_;
};

} // namespace marlune
