#pragma once
#include <QMatrix4x4>
#include <QQuaternion>
#include <QVector3D>

class QDebug;

namespace vxlindral {

// The camera of the 3D view: translation and rotation with a cached
// world-to-camera matrix (rotated by the conjugate rotation, translated by the
// negated translation), rebuilt when dirty.
// A plain value owned by its widget. Threads: GUI thread only.
class Camera3D
{
public:
    static const QVector3D LocalForward; // (0, 0, -0.1)
    static const QVector3D LocalUp;      // (0, 0.1, 0)
    static const QVector3D LocalRight;   // (0.1, 0, 0)

    Camera3D() = default;

    void translate(const QVector3D& dt);
    void setTranslation(const QVector3D& t);
    // Multiplies dr in front of the current rotation.
    void rotate(const QQuaternion& dr);
    void rotate(float angle, const QVector3D& axis);
    void setRotation(const QQuaternion& r);

    const QVector3D& translation() const { return m_translation; }
    const QQuaternion& rotation() const { return m_rotation; }
    bool isDirty() const { return m_dirty; }

    // The world-to-camera matrix; rebuilds the cache and clears the dirty flag.
    const QMatrix4x4& toMatrix();

    // The camera's own axes, scaled to the navigation step (0.1).
    QVector3D forward() const;
    QVector3D up() const;
    QVector3D right() const;

private:
    bool m_dirty = true;
    QVector3D m_translation;
    QQuaternion m_rotation;
    QMatrix4x4 m_world;
};

QDebug operator<<(QDebug dbg, const Camera3D& camera);

} // namespace vxlindral
