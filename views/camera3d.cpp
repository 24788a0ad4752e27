#include "views/camera3d.h"

#include <QDebug>

namespace vxlindral {

const QVector3D Camera3D::LocalForward(0.0f, 0.0f, -0.1f);
const QVector3D Camera3D::LocalUp(0.0f, 0.1f, 0.0f);
const QVector3D Camera3D::LocalRight(0.1f, 0.0f, 0.0f);

void Camera3D::translate(const QVector3D& dt)
{
    m_dirty = true;
    m_translation += dt;
}

void Camera3D::setTranslation(const QVector3D& t)
{
    m_dirty = true;
    m_translation = t;
}

void Camera3D::rotate(const QQuaternion& dr)
{
    m_dirty = true;
    m_rotation = dr * m_rotation;
}

void Camera3D::rotate(float angle, const QVector3D& axis)
{
    rotate(QQuaternion::fromAxisAndAngle(axis, angle));
}

void Camera3D::setRotation(const QQuaternion& r)
{
    m_dirty = true;
    m_rotation = r;
}

const QMatrix4x4& Camera3D::toMatrix()
{
    if (m_dirty) {
        m_dirty = false;
        m_world.setToIdentity();
        m_world.rotate(m_rotation.conjugated());
        m_world.translate(-m_translation);
    }
    return m_world;
}

QVector3D Camera3D::forward() const
{
    return m_rotation.rotatedVector(LocalForward);
}

QVector3D Camera3D::up() const
{
    return m_rotation.rotatedVector(LocalUp);
}

QVector3D Camera3D::right() const
{
    return m_rotation.rotatedVector(LocalRight);
}

QDebug operator<<(QDebug dbg, const Camera3D& camera)
{
    QDebugStateSaver saver(dbg);
    const QVector3D t = camera.translation();
    const QQuaternion r = camera.rotation();
    dbg.nospace().noquote() << "Camera3D\n{\n"
                            << "Position: <" << t.x() << ", " << t.y() << ", " << t.z() << ">\n"
                            << "Rotation: <" << r.x() << ", " << r.y() << ", " << r.z() << ", "
                            << r.scalar() << ">\n}";
    return dbg;
}

} // namespace vxlindral
