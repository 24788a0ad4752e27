#pragma once
#include <QMatrix4x4>
#include <QQuaternion>
#include <QVector3D>

namespace vxlindral {

// The model transform of the 3D view: translation, rotation and scale with a
// cached model matrix rebuilt (translate, rotate, scale) when it is dirty.
// A plain value owned by its widget. Threads: GUI thread only.
class Transform3D
{
public:
    Transform3D() = default;

    void setTranslation(const QVector3D& t);
    void translate(const QVector3D& dt);
    void setScale(const QVector3D& s);
    void setRotation(const QQuaternion& r);
    void rotate(const QQuaternion& dr);

    const QVector3D& translation() const { return m_translation; }
    const QVector3D& scale() const { return m_scale; }
    const QQuaternion& rotation() const { return m_rotation; }
    bool isDirty() const { return m_dirty; }

    // The model matrix; rebuilds the cache and clears the dirty flag.
    const QMatrix4x4& toMatrix();

private:
    bool m_dirty = true;
    QVector3D m_translation{0.0f, 0.0f, 0.0f};
    QVector3D m_scale{1.0f, 1.0f, 1.0f};
    QQuaternion m_rotation;
    QMatrix4x4 m_world;
};

} // namespace vxlindral
