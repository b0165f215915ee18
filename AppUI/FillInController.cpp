#include "AppUI/FillInController.h"

#include "MarluneCore/Log.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCursor>
#include <QDateEdit>
#include <QFormLayout>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QScreen>
#include <QVBoxLayout>
#include <QWidget>

#include <algorithm>
#include <utility>

namespace marlune {

namespace {

constexpr const char* kDateFormat = "yyyy-MM-dd";

QString qt(const std::string& text) { return QString::fromStdString(text); }

} // namespace

// One open form: the session behind it and the input of each field, in field order.
struct FillInController::Form {
    explicit Form(std::vector<FillInField> fields) : session(std::move(fields)) {}
    FillInSession session;
    std::unique_ptr<QWidget> window;
    // Per field: the widgets that take its answer (several tick boxes for a multiple choice).
    std::vector<std::vector<QWidget*>> inputs;
    Completion done;
    std::uint32_t previousFocus = 0;
    bool finished = false;
};

FillInController::FillInController(FocusKeeper focus) : focus_(std::move(focus)) {}

FillInController::~FillInController() { dismiss(); }

QWidget* FillInController::window() const { return form_ ? form_->window.get() : nullptr; }

void FillInController::present(const TypedExpansion::FillInRequest& request,
                               const Answers& initialValues, Completion done) {
    dismiss();
    form_ = std::make_unique<Form>(request.fields);
    form_->done = std::move(done);
    if (focus_.save) {
        form_->previousFocus = focus_.save();
    }
    auto& session = form_->session;
    // The last answers given to this snippet win over the defaults where they still fit.
    for (const auto& field : session.fields()) {
        if (const auto last = initialValues.find(field.name); last != initialValues.end()) {
            session.setValue(field.name, last->second);
        }
    }

    form_->window = std::make_unique<QWidget>(
        nullptr, Qt::Window | Qt::WindowStaysOnTopHint | Qt::Dialog);
    QWidget* window = form_->window.get();
    window->setObjectName(QStringLiteral("MarluneFillInForm"));
    window->setWindowTitle(request.keyword.empty() ? QStringLiteral("Fill in")
                                                   : qt("Fill in " + request.keyword));
    window->installEventFilter(this);
    auto* layout = new QFormLayout(window);
    for (const auto& field : session.fields()) {
        const std::string value = session.values().at(field.name);
        std::vector<QWidget*> inputs;
        QWidget* row = nullptr;
        if (const auto* choice = std::get_if<FillInField::Choice>(&field.kind)) {
            auto* box = new QComboBox(window);
            for (const auto& option : choice->options) {
                box->addItem(qt(option));
            }
            box->setCurrentText(qt(value));
            inputs.push_back(box);
            row = box;
        } else if (const auto* multi = std::get_if<FillInField::MultiChoice>(&field.kind)) {
            row = new QWidget(window);
            auto* column = new QVBoxLayout(row);
            column->setContentsMargins(0, 0, 0, 0);
            for (const auto& option : multi->options) {
                auto* tick = new QCheckBox(qt(option), row);
                tick->setChecked(session.isChosen(field.name, option));
                column->addWidget(tick);
                inputs.push_back(tick);
            }
        } else if (std::holds_alternative<FillInField::Date>(field.kind)) {
            auto* picker = new QDateEdit(window);
            picker->setCalendarPopup(true);
            picker->setDisplayFormat(QString::fromLatin1(kDateFormat));
            const QDate given = QDate::fromString(qt(value), QString::fromLatin1(kDateFormat));
            picker->setDate(given.isValid() ? given : QDate::currentDate());
            inputs.push_back(picker);
            row = picker;
        } else {
            auto* line = new QLineEdit(qt(value), window);
            line->selectAll();
            inputs.push_back(line);
            row = line;
        }
        for (QWidget* input : inputs) {
            input->installEventFilter(this);
        }
        layout->addRow(new QLabel(qt(field.name), window), row);
        form_->inputs.push_back(std::move(inputs));
    }
    layout->addRow(new QLabel(QStringLiteral("Return: next field, then insert · Esc: cancel"),
                              window));

    // Near the pointer, kept on its screen.
    window->adjustSize();
    QPoint at = QCursor::pos() + QPoint(8, 16);
    if (const QScreen* screen = QGuiApplication::screenAt(QCursor::pos())) {
        const QRect area = screen->availableGeometry();
        at.setX(std::clamp(at.x(), area.left(), std::max(area.left(), area.right() - window->width())));
        at.setY(std::clamp(at.y(), area.top(), std::max(area.top(), area.bottom() - window->height())));
    }
    window->move(at);
    window->show();
    window->raise();
    window->activateWindow();
    focusField(0);
}

void FillInController::dismiss() {
    if (form_ && !form_->finished) {
        finish(false);
    }
}

void FillInController::readInputs() {
    auto& session = form_->session;
    const auto& fields = session.fields();
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto& field = fields[i];
        const auto& inputs = form_->inputs[i];
        if (std::holds_alternative<FillInField::MultiChoice>(field.kind)) {
            for (QWidget* input : inputs) {
                const auto* tick = static_cast<QCheckBox*>(input);
                const std::string option = tick->text().toStdString();
                if (tick->isChecked() != session.isChosen(field.name, option)) {
                    session.toggleOption(field.name, option);
                }
            }
        } else if (auto* box = qobject_cast<QComboBox*>(inputs.front())) {
            session.setValue(field.name, box->currentText().toStdString());
        } else if (auto* picker = qobject_cast<QDateEdit*>(inputs.front())) {
            session.setValue(field.name,
                             picker->date().toString(QString::fromLatin1(kDateFormat)).toStdString());
        } else if (auto* line = qobject_cast<QLineEdit*>(inputs.front())) {
            session.setValue(field.name, line->text().toStdString());
        }
    }
}

void FillInController::focusField(std::int64_t index) {
    form_->session.focus(index);
    const auto& inputs = form_->inputs;
    if (index >= 0 && static_cast<std::size_t>(index) < inputs.size() &&
        !inputs[static_cast<std::size_t>(index)].empty()) {
        inputs[static_cast<std::size_t>(index)].front()->setFocus(Qt::OtherFocusReason);
    }
}

bool FillInController::eventFilter(QObject* watched, QEvent* event) {
    if (!form_ || form_->finished) {
        return QObject::eventFilter(watched, event);
    }
    if (event->type() == QEvent::Close && watched == form_->window.get()) {
        finish(false);
        return false;
    }
    if (event->type() != QEvent::KeyPress) {
        return QObject::eventFilter(watched, event);
    }
    const auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() == Qt::Key_Escape) {
        finish(false);
        return true;
    }
    if (key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter) {
        return false;
    }
    // The session decides where Return goes from the field that has the focus.
    for (std::size_t i = 0; i < form_->inputs.size(); ++i) {
        const auto& inputs = form_->inputs[i];
        if (std::find(inputs.begin(), inputs.end(), watched) != inputs.end()) {
            form_->session.focus(static_cast<std::int64_t>(i));
        }
    }
    readInputs();
    if (form_->session.pressReturn() == FillInSession::ReturnAction::next) {
        focusField(form_->session.activeIndex());
    } else {
        finish(true);
    }
    return true;
}

void FillInController::finish(bool insert) {
    form_->finished = true;
    std::optional<Answers> answers;
    if (insert) {
        answers = form_->session.values();
    }
    auto done = std::move(form_->done);
    const auto previous = form_->previousFocus;
    // Deleted once control is back in the event loop: this may run inside the window's own
    // event handling.
    QWidget* window = form_->window.release();
    window->removeEventFilter(this);
    window->hide();
    window->deleteLater();
    form_.reset();
    if (focus_.restore && previous != 0) {
        focus_.restore(previous);
    }
    if (done) {
        done(std::move(answers));
    }
}

} // namespace marlune
