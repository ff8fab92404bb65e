#include "kelvara/kinematics/kinematics.hpp"

#include <cmath>
#include <random>
#include <stdexcept>

#include <Eigen/Geometry>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kdl/chaindynparam.hpp>

#include "support/captured_output.hpp"
#include "support/comma_locale.hpp"
#include "support/edited_description.hpp"

namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using Joints = std::vector<double>;

constexpr double kPi = M_PI;

struct Kinematics : ::testing::Test {
  Joints random_joints(double scale = 1.0) {
    Joints q(6);
    for (std::size_t i = 0; i < q.size(); ++i) {
      q[i] = scale * std::uniform_real_distribution<double>(model.joint_lower()[i],
                                                            model.joint_upper()[i])(random);
    }
    return q;
  }
  static Eigen::VectorXd to_eigen(const Joints& q) {
    return Eigen::Map<const Eigen::VectorXd>(q.data(), 6);
  }

  RobotKinematics model;
  std::mt19937 random{11};
};

TEST_F(Kinematics, BothForwardKinematicsAgree) {
  for (int trial = 0; trial < 500; ++trial) {
    const Joints q = random_joints();
    const Eigen::Matrix4d T = model.forward_kinematics(to_eigen(q));
    const std::vector<double> pose = model.forwardKinematics_kdl(q);
    const Eigen::Quaterniond kdl_rotation(pose[6], pose[3], pose[4], pose[5]);
    EXPECT_LT((T.topRightCorner<3, 1>() - Eigen::Vector3d(pose.data())).norm(), 1e-12);
    const Eigen::Matrix3d R = T.topLeftCorner<3, 3>();
    EXPECT_LT((kdl_rotation.toRotationMatrix() - R).norm(), 1e-9) << to_eigen(q).transpose();
  }
  EXPECT_EQ(model.forward_kinematics(Eigen::VectorXd::Zero(6)), model.home());
}

TEST_F(Kinematics, TheArmHasTheLinkLengthsOfItsDescription) {
  const auto tool_x = [&](const Joints& q) { return model.forwardKinematics_kdl(q)[0]; };
  const Joints zero(6, 0.0);
  EXPECT_NEAR(tool_x(zero), 0.26498 + 0.08415 + 0.124 + 0.13, 1e-12);
  EXPECT_NEAR(tool_x({0, kPi / 2, -kPi / 2, 0, 0, 0}), tool_x(zero) + 0.265, 1e-12);
  EXPECT_EQ(model.joint_lower()[1], -1.57);
  // Held out straight, with half a kilogram in the gripper.
  const Joints limits{18, 18, 18, 7, 5, 5};
  const Joints tau = model.gravity_compensation_kdl({0, kPi / 2, -kPi / 2, 0, 0, 0});
  const Joints load_arms{0, 0.868, 0.60313, 0.33815, 0.254, 0};
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_LT(std::abs(tau[i]) + 0.5 * 9.81 * load_arms[i], limits[i]) << "joint " << i + 1;
  }
}

TEST_F(Kinematics, AreTheSameUnderALocaleWithAComma) {
  const Joints q = random_joints();
  const CommaLocale locale;
  const RobotKinematics other;
  EXPECT_EQ(other.gravity_compensation_kdl(q), model.gravity_compensation_kdl(q));
  EXPECT_EQ(other.forward_kinematics(to_eigen(q)), model.forward_kinematics(to_eigen(q)));
  EXPECT_EQ(other.joint_lower(), model.joint_lower());
  EXPECT_EQ(other.joint_upper(), model.joint_upper());
}

TEST_F(Kinematics, ComeFromTheGivenFilesElseFromThoseOfTheSearch) {
  const EditedDescription found;
  const EditedDescription given;  // the current directory
  given.edit_urdf("lower=\"-1.57\"", "lower=\"-1.5\"");
  given.edit("mass: 0.4", "mass: 0.7");
  const std::filesystem::path config = given.path();
  const RobotKinematics both("config/BrimloV2.SLDASM.urdf",
                             "config/../config/robot_kinematics.yaml");
  EXPECT_EQ(both.description_files().urdf_path, config / "BrimloV2.SLDASM.urdf");
  EXPECT_EQ(both.description_files().settings_path, config / "robot_kinematics.yaml");
  std::filesystem::current_path(found.path());
  const RobotKinematics mixed(config / "BrimloV2.SLDASM.urdf", "");
  EXPECT_EQ(mixed.joint_lower()[1], -1.5);
  EXPECT_EQ(mixed.payload_mass(), 0.4);
  EXPECT_EQ(mixed.description_files().settings_path, found.path() / "robot_kinematics.yaml");
  EXPECT_EQ(RobotKinematics("", config / "robot_kinematics.yaml").payload_mass(), 0.7);
  EXPECT_THROW(RobotKinematics("none.urdf", ""), std::runtime_error);
}

TEST_F(Kinematics, AnglesAndTransformsAreInverseAlsoWherePitchIsNinetyDegrees) {
  std::uniform_real_distribution<double> angle(-kPi, kPi);
  for (int trial = 0; trial < 300; ++trial) {
    double pitch = angle(random) / 2;
    if (trial % 10 == 0) {
      pitch = trial % 20 == 0 ? kPi / 2 : -kPi / 2;
    }
    const Eigen::Vector3d rpy(angle(random), pitch, angle(random));
    const Eigen::Matrix3d R = t_from_xyzrpy({1, 2, 3}, rpy).topLeftCorner<3, 3>();
    const Eigen::Vector3d back = model.rotation_matrix_to_euler(R);
    const Eigen::Matrix3d R_back = t_from_xyzrpy({1, 2, 3}, back).topLeftCorner<3, 3>();
    if (trial % 10 != 0) {
      EXPECT_LT((R - R_back).norm(), 1e-9) << rpy.transpose();
    } else {
      EXPECT_EQ(back[2], 0.0);
      EXPECT_NEAR(back[1], pitch, 1e-7);
    }
    const Eigen::Vector4d q = model.rotation_matrix_to_quaternion(R);
    EXPECT_LT((Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix() - R).norm(), 1e-12);
  }
}

TEST_F(Kinematics, QuaternionErrorIsTheShorterRotationVectorInTheBaseFrame) {
  const Eigen::Vector4d identity(0, 0, 0, 1);
  EXPECT_EQ(model.quaternion_error(identity, identity), Eigen::Vector3d::Zero());
  EXPECT_EQ(model.quaternion_error(identity, -identity), Eigen::Vector3d::Zero());
  for (const double angle : {1e-9, 0.3, 3.0, 3.3, 6.0}) {
    const Eigen::Vector3d axis = Eigen::Vector3d(1, -2, 0.5).normalized();
    const Eigen::Quaterniond from(Eigen::AngleAxisd(0.7, Eigen::Vector3d::UnitX()));
    const Eigen::Quaterniond to = Eigen::AngleAxisd(angle, axis) * from;
    const double shorter = angle > kPi ? angle - 2 * kPi : angle;
    EXPECT_LT((model.quaternion_error(5.0 * to.coeffs(), from.coeffs()) - shorter * axis).norm(),
              1e-12)
        << angle;
  }
}

TEST_F(Kinematics, ExponentialOfAPureTranslationMovesStraight) {
  Eigen::Matrix<double, 6, 1> screw;
  screw << 0, 0, 0, 1, 2, 3;
  EXPECT_EQ((exp_se3(screw, 0.5).topRightCorner<3, 1>()), Eigen::Vector3d(0.5, 1.0, 1.5));
}

TEST_F(Kinematics, InverseDynamicsIsTheSumOfItsParts) {
  std::normal_distribution<double> normal;
  for (int trial = 0; trial < 100; ++trial) {
    const Joints q = random_joints();
    Joints qd(6);
    Joints qdd(6);
    for (std::size_t i = 0; i < 6; ++i) {
      qd[i] = normal(random);
      qdd[i] = normal(random);
    }
    const Joints zero(6, 0.0);
    const Joints whole = model.dynamic_compensation_kdl(q, qd, qdd);
    const Joints inertial = model.dynamic_compensation_kdl(q, zero, qdd);
    const Joints gravity = model.gravity_compensation_kdl(q);
    const Joints coriolis = model.coriolis_compensation_kdl(q, qd);
    Joints reused(6);
    model.inverse_dynamics(q.data(), qd.data(), qdd.data(), reused.data());
    for (std::size_t i = 0; i < 6; ++i) {
      EXPECT_NEAR(whole[i], inertial[i] + coriolis[i], 1e-12);
      EXPECT_EQ(whole[i], reused[i]);
    }
    // Joint 1 is vertical: gravity does not turn it.
    EXPECT_NEAR(gravity[0], 0.0, 1e-12);
  }
}

TEST_F(Kinematics, IkFindsPosesAndReportsClippedJoints) {
  CapturedOutput output;
  Joints solution{9.0};
  int solved = 0;
  for (int trial = 0; trial < 50; ++trial) {
    const Joints q = random_joints(0.6);
    const std::vector<double> pose = model.forwardKinematics_kdl(q);
    const Eigen::Vector3d rpy = model.rotation_matrix_to_euler(
        Eigen::Quaterniond(pose[6], pose[3], pose[4], pose[5]).toRotationMatrix());
    Joints seed = q;
    for (double& angle : seed) {
      angle += 0.1;
    }
    solved +=
        model.solve_ik_kdl({pose[0], pose[1], pose[2]}, {rpy[0], rpy[1], rpy[2]}, seed, solution) &&
        std::hypot(model.forwardKinematics_kdl(solution)[0] - pose[0],
                   model.forwardKinematics_kdl(solution)[2] - pose[2]) < 1e-4;
  }
  EXPECT_GE(solved, 48);

  // Behind the base: joint 1 has to turn beyond its limit of 2.8 rad.
  const std::vector<double> behind = model.forwardKinematics_kdl({3.1, 0, 0, 0, 0, 0});
  EXPECT_TRUE(model.solve_ik_kdl({behind[0], behind[1], behind[2]}, {0, 0, 3.1},
                                 {3.0, 0, 0, 0, 0, 0}, solution));
  EXPECT_EQ(solution[0], 2.8);
  EXPECT_THAT(output.err(), HasSubstr("solve_ik_kdl diagnostics: target_pos=[-0."));
  EXPECT_THAT(
      output.err(),
      ContainsRegex("clipped_joints=\\[joint1: 3\\.[01][0-9]* -> 2\\.8\\], raw_fk_pos=\\[-0"));
}

TEST_F(Kinematics, IkLeavesTheResultUntouchedWhenItFails) {
  CapturedOutput output;
  const Joints seed(6, 0.1);
  Joints untouched{9.0};
  EXPECT_FALSE(model.solve_ik_kdl({5, 0, 0}, {0, 0, 0}, seed, untouched));
  EXPECT_THAT(output.err(), HasSubstr("target_pos=[5, 0, 0], target_euler=[0, 0, 0]\n"));
  EXPECT_FALSE(model.solve_ik_kdl({NAN, 0, 0}, {0, 0, 0}, seed, untouched));
  EXPECT_FALSE(model.solve_ik_kdl({0.3, 0, 0.3}, {0, INFINITY, 0}, seed, untouched));
  EXPECT_EQ(untouched, Joints{9.0});
  EXPECT_THROW(model.solve_ik_kdl({0, 0}, {0, 0, 0}, seed, untouched), std::invalid_argument);
  EXPECT_THROW(model.solve_ik_kdl({0, 0, 0}, {0, 0, 0}, {0.0}, untouched), std::invalid_argument);
}

TEST_F(Kinematics, RefusesVectorsOfTheWrongSize) {
  const auto message = [](auto call) -> std::string {
    try {
      call();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  };
  const Joints five(5, 0.0);
  const Joints six(6, 0.0);
  const std::string gravity =
      "gravity_compensation_kdl: size mismatch between input vector and KDL chain joints";
  EXPECT_EQ(message([&] { model.forward_kinematics(Eigen::VectorXd::Zero(5)); }), "关节数不匹配");
  EXPECT_EQ(message([&] { model.forwardKinematics_kdl(five); }),
            "forwardKinematics_kdl: size mismatch between input vector and KDL chain joints");
  EXPECT_EQ(message([&] { model.gravity_compensation_kdl(five); }), gravity);
  EXPECT_EQ(message([&] { model.coriolis_compensation_kdl(five, six); }), gravity);
  EXPECT_EQ(message([&] { model.dynamic_compensation_kdl(five, six, six); }),
            "dynamic_compensation_kdl: size mismatch");
}

}  // namespace
