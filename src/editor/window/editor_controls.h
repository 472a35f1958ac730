#pragma once
// The editor's two controls that size or draw themselves; form2.ui places them by name.
#include <QComboBox>
#include <QGroupBox>

namespace veltro {

// A list box as wide as a fixed number of characters. A vehicle can have thousands of values,
// so the box is not sized by measuring its entries; QComboBox's own fixed-length policy would do
// that too, but setting it builds the popup (a list view, two scroll bars, two scrollers) at
// once for every box, which was most of the window's construction time.
// form2.ui sets `characters` through the property system (stdset="0"), which Qt Designer
// keeps for a promoted widget.
class FixedWidthCombo : public QComboBox {
    Q_OBJECT
    Q_PROPERTY(int characters READ characters WRITE setCharacters)
public:
    explicit FixedWidthCombo(QWidget* parent = nullptr) : QComboBox(parent) {}

    int characters() const { return characters_; }
    void setCharacters(int characters);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

private:
    int characters_ = 20;
};

// A frame with its caption, drawn as a plain etched border. The style's own group box stretches
// a translucent picture over the whole inside; on the configuration frame that cost more than
// painting every control in it.
class EtchedFrame : public QGroupBox {
public:
    explicit EtchedFrame(QWidget* parent = nullptr) : QGroupBox(parent) {}

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace veltro
